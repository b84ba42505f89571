// Follows one image file that a camera keeps replacing or overwriting.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <string>

#include "image/ImageFiles.h"

// Both ways of writing work: replacing the file by rename (every frame whole by itself) and writing it in place. A
// frame is taken once, when the file differs from the one taken last (modification time in nanoseconds, size, inode),
// did not change while it was read, and decodes as a whole.
class LiveFile {
 public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds kPoll{20};           // between two looks at the file
    static constexpr std::chrono::milliseconds kMissingAfter{250};  // without a readable file: four answers a second
    static constexpr std::chrono::milliseconds kSettle{20};         // without a write, where the inode stays
    static constexpr std::chrono::milliseconds kPatience{250};      // then a file that never settles is tried as it is

    explicit LiveFile(std::string file) : path(std::move(file)) {}

    // Whether `image` was set to a new frame; its pixels are the caller's. If not, image.pixels is null, and
    // image.error says why where the file is missing, unreadable or not (yet) a whole image; the error is empty where
    // the file is merely unchanged or being written. Costs one stat where nothing changed. Never sleeps: a caller that
    // polls waits SuggestedWait() before the next call.
    bool TakeIfChanged(LoadedImage& image);
    static std::chrono::milliseconds SuggestedWait() { return kPoll; }

    // Sleeps until there is a new frame and returns it, or until the file has been missing, unreadable or damaged for
    // kMissingAfter, without a change in between, and returns an image without pixels. The latter's error is empty
    // where it repeats the one that was returned before, so that each outage is reported once. An unchanged file is
    // waited for without limit.
    LoadedImage WaitForFrame();

 private:
    struct Stamp {
        long long seconds = 0, nanoseconds = 0, size = 0;
        unsigned long long inode = 0, device = 0;
        bool operator==(const Stamp&) const = default;
    };
    static Stamp StampOf(const struct stat& st);
    bool Settled(const Stamp& now);

    std::string path;
    Stamp seen;                 // of the file taken or refused last; all zero before the first
    std::string refusal;        // why that file is no frame; empty where it was one
    Clock::time_point changed;  // when that file was read
    Clock::time_point since;    // when the file began to be written
    bool writing = false;       // `since` counts
    std::string reported;       // error that WaitForFrame returned last
};
