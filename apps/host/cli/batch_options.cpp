#include "cli/batch_options.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "cli/batch_commands.h"

namespace fleifeisa::host {
namespace {

void addClipRun(CLI::App& app, int& code) {
    auto archive = std::make_shared<std::string>(), analyzer = std::make_shared<std::string>();
    CLI::App* run = app.add_subcommand("clip-run", "One clip of an archive, as standard input says.")->group("");
    run->add_option("ARCHIVE", *archive)->required();
    run->add_option("--analyzer", *analyzer);
    run->callback([archive, analyzer, &code] { code = clipRunCommand(*archive, *analyzer); });
}

}  // namespace

void addBatch(CLI::App& app, int& code, const std::string& version) {
    auto options = std::make_shared<BatchOptions>();
    options->version = version;
    CLI::App* batch = app.add_subcommand("batch", "Many recorded clips: tracks, events and pictures of all of them.");
    batch->add_option("CLIPS", options->clips, "video files, directories of them, lists (.csv: camera,file,start)")
        ->required();
    batch->add_option("--config", options->config,
                      "configuration of the cameras, as for run (source and device may be missing)");
    batch->add_option("--out", options->out, "directory of the archive (archive)");
    batch->add_option("--jobs", options->jobs, "processes at a time, each takes one processor (all there are)")
        ->check(CLI::Range(1, 1024));
    batch->add_flag("--retry", options->retry, "also clips that failed before because of what is in them");
    batch->add_option("--analyzer", options->analyzer, "the analyzer's executable");
    batch->add_flag("-q,--quiet", options->quiet, "no progress");
    batch->callback([options, &code] { code = batchCommand(*options); });
    addClipRun(app, code);
}

}  // namespace fleifeisa::host
