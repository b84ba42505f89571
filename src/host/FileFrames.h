// Where the file modes get their frames from: the images of a list, or one file that a camera keeps writing
// (docs/image-files.md). What is wrong with an image goes to standard error, one line each.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "host/FrameLoop.h"
#include "image/LiveFile.h"

class FileFrames : public FrameInput {
 public:
    // A list of names, separated by white space; `name_path` comes directly in front of each. False where the list
    // cannot be opened or is a directory.
    bool OpenList(const std::string& list, const std::string& name_path);

    // A file that is written again and again.
    void Follow(const std::string& file) { live = std::make_unique<LiveFile>(file); }

    // The next frame, after OpenList or Follow; following waits for it. It stays without pixels where the image cannot
    // be read or is of another size than the frames before it. The message says the time and the frame's number.
    Result Next(KsColorImage& img, streamin& message, const FrameCycle& cycle) override;
    bool AnswersFirst() const override { return false; }

 private:
    bool NextName(std::string& name);
    void LoadLive(KsColorImage& img);
    void CheckSize(KsColorImage& img, int number, int rows, int cols);

    std::ifstream fnames;
    std::string path;                // in front of the names
    std::unique_ptr<LiveFile> live;  // null with a list
    int odd_rows = 0, odd_cols = 0;  // size that was complained about, since the latest frame of the right size
};
