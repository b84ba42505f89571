#include "host/FileFrames.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>

namespace {

constexpr int kLongestName = 4096;  // bytes; longer ones cannot be opened anyway

}  // namespace

bool FileFrames::OpenList(const std::string& list, const std::string& name_path) {
    path = name_path;
    fnames.open(list);
    std::error_code ignored;
    return fnames && !std::filesystem::is_directory(list, ignored);
}

// False at the end of the list. What exceeds the longest name is cut off.
bool FileFrames::NextName(std::string& name) {
    fnames >> std::setw(kLongestName) >> name;
    if (static_cast<int>(name.size()) == kLongestName)
        while (fnames.good() && std::isspace(fnames.peek()) == 0) fnames.ignore();
    return !name.empty();
}

void FileFrames::LoadLive(KsColorImage& img) {
    const LoadedImage image = live->WaitForFrame();
    if (image.pixels != nullptr) img.KsReadImageMemory(image.pixels, image.height, image.width);
    if (!image.error.empty()) std::cerr << image.error << std::endl;
}

FrameInput::Result FileFrames::Next(KsColorImage& img, streamin& message, const FrameCycle& cycle) {
    if (live != nullptr) {
        LoadLive(img);
    } else {
        std::string name;
        const bool found = NextName(name);
        if (fnames.bad()) {
            std::cerr << "The list of images cannot be read to its end." << std::endl;
            return Result::kFailed;
        }
        if (!found) return Result::kEnd;
        img.KsReadImageFile((path + name).c_str());
    }
    const int number = cycle.Number() + 1;
    if (cycle.Tracker() != nullptr && img.raw)
        CheckSize(img, number, cycle.Tracker()->G->NofR, cycle.Tracker()->G->NofC);
    char text[80];
    std::snprintf(text, sizeof text, "%d", static_cast<int>(std::time(nullptr)));
    message.timestamp = strdup(text);
    message.sequence_num = number;
    return Result::kFrame;
}

void FileFrames::CheckSize(KsColorImage& img, int number, int rows, int cols) {
    if (img.NofR == rows && img.NofC == cols) {
        odd_rows = odd_cols = 0;
        return;
    }
    // A camera that was switched to another size goes on with it: one line says it all.
    if (live == nullptr || img.NofR != odd_rows || img.NofC != odd_cols)
        std::cerr << "Frame " << number << ": an image of " << img.NofC << "x" << img.NofR << " pixels, the first had "
                  << cols << "x" << rows << "; it counts as a frame without pixels." << std::endl;
    odd_rows = img.NofR;
    odd_cols = img.NofC;
    img.KsFreeImageMemory();
    img.Detach();
}
