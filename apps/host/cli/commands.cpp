// What the verbs share: outputs by their names, exit statuses.
#include "cli/commands.h"

#include <sysexits.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "camera/output_types.h"
#include "cli/nearest.h"
#include "common/log.h"

namespace fleifeisa::host {

namespace fs = std::filesystem;

int statusOf(const std::function<int()>& verb) {
    const auto failed = [](int status, const std::exception& error) {
        logError("", error.what());
        return status;
    };
    try {
        return verb();
    } catch (const SourceError& error) {
        return failed(error.code, error);
    } catch (const AnalyzerError& error) {
        return failed(EX_SOFTWARE, error);
    } catch (const OutputError& error) {
        return failed(EX_CANTCREAT, error);
    } catch (const std::exception& error) {
        return failed(EX_OSERR, error);
    }
}

OutputChoice parseOutputChoice(const std::string& text, const std::string& directory) {
    const std::size_t equals = text.find('=');
    OutputChoice wanted{text.substr(0, equals), equals == std::string::npos ? "" : text.substr(equals + 1), {}};
    const OutputType* type = findOutputType(wanted.type);
    if (type == nullptr) {
        std::vector<std::string> names;
        std::string known;
        for (const OutputType& each : outputTypes()) {
            names.emplace_back(each.name);
            known += (known.empty() ? "" : ", ") + names.back();
        }
        const std::string meant = nearest(wanted.type, names);
        throw SourceError(EX_USAGE, "there is no output '" + wanted.type + "'" +
                                        (meant.empty() ? "" : ", did you mean " + meant + "?") + " (there are " +
                                        known + ")");
    }
    if (wanted.path.empty()) {
        makeDirectory(directory);
        wanted.path = (fs::path(directory) / type->default_file).string();
    }
    return wanted;
}

void makeDirectory(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) throw SourceError(EX_CANTCREAT, path + ": " + error.message());
}

std::string foundAnalyzer(const std::string& wanted) {
    std::string program = findAnalyzer(wanted);
    if (program.empty())
        throw SourceError(EX_UNAVAILABLE,
                          "the analyzer " + (wanted.empty() ? "fleifeisa" : wanted) +
                              " was not found (it is looked for beside this program and in PATH; --analyzer names it)");
    return program;
}

int tellFaults(const std::vector<std::string>& faults) {
    constexpr std::size_t kMost = 20;
    for (std::size_t i = 0; i < std::min(faults.size(), kMost); ++i) logError("", faults[i]);
    if (faults.size() > kMost) logError("", "and " + std::to_string(faults.size() - kMost) + " more of the kind");
    return EX_CONFIG;
}

}  // namespace fleifeisa::host
