// What the process writes to its standard output while this lives.
#pragma once

#include <gtest/gtest.h>

#include <string>

class CapturedOutput {
 public:
    CapturedOutput() { testing::internal::CaptureStdout(); }
    ~CapturedOutput() { testing::internal::GetCapturedStdout(); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    // Since the latest call.
    std::string take() {
        std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }
};
