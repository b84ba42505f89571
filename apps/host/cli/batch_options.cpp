#include "cli/batch_options.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "cli/batch_commands.h"
#include "cli/values.h"

namespace fleifeisa::host {
namespace {

/// An option with a duration such as "1h" or "90 s".
void addDuration(CLI::App& app, const char* name, std::int64_t& field_ns, const char* help) {
    app.add_option_function<std::string>(
        name,
        [&field_ns, name](const std::string& text) {
            try {
                field_ns = static_cast<std::int64_t>(parseDuration(text) * 1e9);
            } catch (const ValueError& error) {
                throw CLI::ValidationError(name, "'" + text + "': " + error.what());
            }
        },
        help);
}

void addClipRun(CLI::App& app, int& code) {
    auto archive = std::make_shared<std::string>(), analyzer = std::make_shared<std::string>();
    CLI::App* run = app.add_subcommand("clip-run", "One clip of an archive, as standard input says.")->group("");
    run->add_option("ARCHIVE", *archive)->required();
    run->add_option("--analyzer", *analyzer);
    run->callback([archive, analyzer, &code] { code = clipRunCommand(*archive, *analyzer); });
}

void addStatus(CLI::App& batch, int& code) {
    auto directory = std::make_shared<std::string>();
    auto watch = std::make_shared<bool>(false);
    CLI::App* status = batch.add_subcommand("status", "How far an archive is, from any machine that sees it.");
    status->add_option("DIR", *directory, "directory of the archive")->required();
    status->add_flag("--watch", *watch, "until all is done, a line that moves");
    status->callback([directory, watch, &code] { code = batchStatusCommand(*directory, *watch); });
}

void addMerge(CLI::App& batch, int& code) {
    auto directory = std::make_shared<std::string>();
    auto quiet = std::make_shared<bool>(false);
    CLI::App* merge = batch.add_subcommand("merge", "Page and database of what is done so far.");
    merge->add_option("DIR", *directory, "directory of the archive")->required();
    merge->add_flag("-q,--quiet", *quiet, "no progress");
    merge->callback([directory, quiet, &code] { code = batchMergeCommand(*directory, *quiet); });
}

/// Options for Slurm, behind --slurm.
void addSlurm(CLI::App& app, bool& slurm, std::vector<std::string>& sbatch, const char* help) {
    app.add_flag("--slurm", slurm, help);
    app.add_option("--sbatch", sbatch, "an option for sbatch, such as --sbatch=--partition=night; may be repeated")
        ->take_all();
}

void addVerify(CLI::App& batch, int& code) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* verify = batch.add_subcommand("verify", "Runs a share of the clips again: do all machines agree?");
    verify->add_option("DIR", options->directory, "directory of the archive")->required();
    verify->add_option("--share", options->share, "per cent of what each machine made, at least one clip of each (2)")
        ->check(CLI::Range(0.0, 100.0));
    verify->add_option("--jobs", options->jobs, "processes at a time (one for each processor)")
        ->check(CLI::Range(1, 1024));
    addSlurm(*verify, options->slurm, options->sbatch, "each clip on another node than the one that made it");
    verify->add_option("--analyzer", options->analyzer, "the analyzer's executable");
    verify->add_flag("-q,--quiet", options->quiet, "no progress");
    verify->footer("Example:\n  fleifeisa-host batch verify archive --share 2 --slurm\n");
    verify->callback([options, &code] { code = batchVerifyCommand(*options); });
}

void addJobs(CLI::App& batch, int& code) {
    auto directory = std::make_shared<std::string>(), chunks = std::make_shared<std::string>(),
         analyzer = std::make_shared<std::string>();
    CLI::App* cancel = batch.add_subcommand("cancel", "Cancels the jobs that --slurm submitted.");
    cancel->add_option("DIR", *directory, "directory of the archive")->required();
    cancel->callback([directory, &code] { code = batchCancelCommand(*directory); });
    CLI::App* task = batch.add_subcommand("task", "One task of an array of jobs.")->group("");
    task->add_option("DIR", *directory)->required();
    task->add_option("CHUNKS", *chunks)->required();
    task->add_option("--analyzer", *analyzer);
    task->callback([directory, chunks, analyzer, &code] { code = batchTaskCommand(*directory, *chunks, *analyzer); });
}

}  // namespace

void addBatch(CLI::App& app, int& code, const std::string& version) {
    auto options = std::make_shared<BatchOptions>();
    options->version = version;
    CLI::App* batch = app.add_subcommand("batch", "Many recorded clips: tracks, events and pictures of all of them.");
    batch->add_option("CLIPS", options->clips, "video files, directories of them, lists (.csv: camera,file,start)");
    batch->add_option("--config", options->config,
                      "configuration of the cameras, as for run (source and device may be missing)");
    batch->add_option("--out", options->out, "directory of the archive (archive)");
    batch->add_option("--jobs", options->jobs, "processes at a time, which share as many processors (all there are)")
        ->check(CLI::Range(1, 1024));
    batch->add_option("--nice", options->nice, "how far they stand back for other programs of this machine (10)")
        ->check(CLI::Range(0, 19));
    addDuration(*batch, "--cut", options->cut.length_ns, "cut long files into parts of such a length: 1h");
    addDuration(*batch, "--warm-up", options->cut.warm_up_ns,
                "what each part reads before it begins, to learn the scene (120 s)");
    addSlurm(*batch, options->slurm, options->sbatch, "submit what is missing to a Slurm cluster, and return");
    addDuration(*batch, "--task-time", options->task_ns, "of --slurm: what a job should take, about (300 s)");
    batch->add_flag("--retry", options->retry, "also clips that failed before because of what is in them");
    batch->add_flag("!--no-merge", options->merge, "leave page and database for later (batch merge)");
    batch->add_option("--analyzer", options->analyzer, "the analyzer's executable");
    batch->add_flag("-q,--quiet", options->quiet, "no progress");
    batch->footer(
        "Started again it goes on where it was. Ctrl-C ends it cleanly.\n\n"
        "Examples:\n"
        "  fleifeisa-host batch shelf/ --config cameras.toml --out archive\n"
        "  fleifeisa-host batch clips.csv --out archive --jobs 4\n"
        "  fleifeisa-host batch day.mkv --cut 1h --out archive\n"
        "  fleifeisa-host batch shelf/ --config cameras.toml --out /shared/archive --slurm\n"
        "  fleifeisa-host batch status archive --watch\n");
    batch->require_subcommand(0, 1);
    addStatus(*batch, code);
    addMerge(*batch, code);
    addVerify(*batch, code);
    addJobs(*batch, code);
    batch->callback([options, batch, &code] {
        if (!batch->get_subcommands().empty()) return;
        if (options->clips.empty()) throw CLI::RequiredError("CLIPS");
        code = batchCommand(*options);
    });
    addClipRun(app, code);
}

}  // namespace fleifeisa::host
