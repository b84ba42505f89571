// The measurements as tables for people and as JSON for plots.
#pragma once

#include <ostream>
#include <string>

#include "bench/compare/Suite.h"

namespace bench {

// What is counted and what is not, the machine, the programs: everything a reader needs to judge the numbers.
void PrintHeader(std::ostream& out, const SuiteOptions& options, const SuiteResult& result, const std::string& label);
void PrintTables(std::ostream& out, const SuiteResult& result);

void WriteJson(const std::string& path, const SuiteOptions& options, const SuiteResult& result,
               const std::string& label);
void WriteJson(const std::string& path, const SweepResult& result, const std::string& label);

}  // namespace bench
