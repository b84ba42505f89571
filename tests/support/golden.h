// What a stream comes to, line by line, against a committed file (tests/cases/golden).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

// With FLEIFEISA_WRITE_GOLDEN in the environment the file is written instead. `difference` names what differs between
// an expected and an actual line.
template <class Difference>
void compareWithGolden(const std::string& name, const std::vector<std::string>& lines, const Difference& difference) {
    const std::string path = std::string(FLEIFEISA_SOURCE_DIR "/tests/cases/golden/") + name + ".txt";
    if (std::getenv("FLEIFEISA_WRITE_GOLDEN") != nullptr) {
        std::ofstream out(path);
        for (const std::string& line : lines) out << line << '\n';
        GTEST_SKIP() << "wrote " << path;
    }
    std::ifstream in(path);
    ASSERT_TRUE(in) << path << " is missing; FLEIFEISA_WRITE_GOLDEN=1 writes it";
    std::string expected;
    for (const std::string& line : lines) {
        ASSERT_TRUE(std::getline(in, expected)) << path << " ends before: " << line;
        ASSERT_EQ(expected, line) << "first difference in: " << difference(expected, line);
    }
    EXPECT_FALSE(std::getline(in, expected)) << path << " holds more frames than the replay";
}
