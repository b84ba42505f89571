// The measurements as tables for people and as JSON for plots.
#pragma once

#include <ostream>
#include <string>

#include "bench/compare/suite.h"

namespace bench {

// What is counted and what is not, the machine, the programs: everything a reader needs to judge the numbers.
void printHeader(std::ostream& out, const SuiteOptions& options, const SuiteResult& result, const std::string& label);
void printTables(std::ostream& out, const SuiteResult& result);

void writeJson(const std::string& path, const SuiteOptions& options, const SuiteResult& result,
               const std::string& label);
void writeJson(const std::string& path, const SweepResult& result, const std::string& label);

}  // namespace bench
