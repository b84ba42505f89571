// Compares the analyzer with pipelines built from OpenCV on the same frames.
#include <sched.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "bench/compare/report.h"
#include "bench/compare/suite.h"

namespace {

constexpr const char* kUsage =
    "usage: compare --analyzer PROGRAM [options]\n"
    "  --footage DIR      footage (highway.mp4, vtest.avi below it); made scenes stand in where it is missing\n"
    "  --sizes LIST       frame heights to run, of 240,576,1080 (default: all)\n"
    "  --rounds N         rounds (default 5)\n"
    "  --length X         scales the number of frames a round has (default 1)\n"
    "  --quick            short: 3 rounds of half the length\n"
    "  --no-worst         leave the worst contents out\n"
    "  --block N          frames a contestant works on before the next takes its turn (default 10)\n"
    "  --core N           the core everything measured runs on (default: the last one allowed)\n"
    "  --limit SECONDS    wall time a reply may take (default 5)\n"
    "  --label TEXT       printed with the tables, e.g. the commit\n"
    "  --json FILE        also writes all measurements\n"
    "  --sweep FILE       instead: time and memory against image size and number of objects, as JSON\n";

struct Arguments {
    bench::SuiteOptions suite;
    std::string label;
    std::string json;
    std::string sweep;
};

int lastAllowedCore() {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof(set), &set);
    int last = 0;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(static_cast<size_t>(core), &set)) last = core;
    }
    return last;
}

double number(const std::string& option, const std::string& text, double low, double high) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= low && value <= high)) {
        std::ostringstream message;
        message << option << " takes a number from " << low << " to " << high << ", not \"" << text << "\"";
        throw std::invalid_argument(message.str());
    }
    return value;
}

std::vector<int> heights(const std::string& list) {
    std::vector<int> heights;
    std::istringstream words(list);
    for (std::string word; std::getline(words, word, ',');) {
        if (word != "240" && word != "576" && word != "1080") {
            throw std::invalid_argument("--sizes takes heights of 240, 576 and 1080, not \"" + word + "\"");
        }
        heights.push_back(std::stoi(word));
    }
    return heights;
}

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    bench::SuiteOptions& suite = arguments.suite;
    suite.heights = {240, 576, 1080};
    suite.core = lastAllowedCore();
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw std::invalid_argument(option + " needs a value");
            return argv[++i];
        };
        const auto count = [&](double low, double high) {
            return static_cast<size_t>(number(option, value(), low, high));
        };
        if (option == "--analyzer")
            suite.analyzer = value();
        else if (option == "--footage")
            suite.footage = value();
        else if (option == "--sizes")
            suite.heights = heights(value());
        else if (option == "--rounds")
            suite.rounds = count(1, 1000);
        else if (option == "--length")
            suite.length = number(option, value(), 0.1, 4.0);
        else if (option == "--quick")
            suite.rounds = 3, suite.length = 0.5;
        else if (option == "--no-worst")
            suite.worst = false;
        else if (option == "--block")
            suite.block = count(1, 10000);
        else if (option == "--core")
            suite.core = static_cast<int>(count(0, CPU_SETSIZE - 1));
        else if (option == "--limit")
            suite.reply_limit_seconds = number(option, value(), 0.1, 86400.0);
        else if (option == "--label")
            arguments.label = value();
        else if (option == "--json")
            arguments.json = value();
        else if (option == "--sweep")
            arguments.sweep = value();
        else
            throw std::invalid_argument("unknown option " + option);
    }
    if (suite.analyzer.empty()) throw std::invalid_argument("--analyzer is missing");
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--help") {
        std::cout << kUsage;
        return 0;
    }
    try {
        const Arguments arguments = parse(argc, argv);
        if (!arguments.sweep.empty()) {
            bench::writeJson(arguments.sweep, bench::runSweep(arguments.suite), arguments.label);
            return 0;
        }
        const bench::SuiteResult result = bench::runSuite(arguments.suite);
        bench::printHeader(std::cout, arguments.suite, result, arguments.label);
        bench::printTables(std::cout, result);
        if (!arguments.json.empty()) bench::writeJson(arguments.json, arguments.suite, result, arguments.label);
        return 0;
    } catch (const std::invalid_argument& error) {
        std::cerr << "compare: " << error.what() << "\n" << kUsage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "compare: " << error.what() << "\n";
        return 1;
    }
}
