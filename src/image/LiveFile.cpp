#include "image/LiveFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>

#include "image/imageformats.h"

LiveFile::Stamp LiveFile::StampOf(const struct stat& st) {
    return {st.st_mtim.tv_sec, st.st_mtim.tv_nsec, st.st_size, st.st_ino, st.st_dev};
}

// Whether a changed file may be read. One with another inode than before started empty, so that its format tells
// whether it is whole. One that is written over in place may hold a new upper and an old lower half: it is left alone
// until nobody has written to it for kSettle, or until it has not come to rest for kPatience.
bool LiveFile::Settled(const Stamp& now) {
    if (seen != Stamp{} && (now.inode != seen.inode || now.device != seen.device)) return true;
    const Clock::time_point time = Clock::now();
    if (!writing) since = time;
    writing = true;
    struct timespec wall;
    clock_gettime(CLOCK_REALTIME, &wall);
    const double age = static_cast<double>(wall.tv_sec - now.seconds) +
                       static_cast<double>(wall.tv_nsec - now.nanoseconds) * 1e-9;  // s; negative: another clock's
    const bool rests = age < 0 || age * 1000 >= static_cast<double>(kSettle.count());
    return rests || time - since >= kPatience;
}

bool LiveFile::TakeIfChanged(LoadedImage& image) {
    image = LoadedImage{};
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        const char* reason = std::strerror(errno);
        image = Refuse("Cannot load the image " + path + ": it cannot be opened (" + reason + ").");
        seen = Stamp{};
        writing = false;
        return false;
    }
    const Stamp now = StampOf(st);
    if (now == seen) {
        image.error = refusal;
        return false;
    }
    if (!Settled(now)) return false;

    const FileContent content = ReadImageFile(path.c_str());
    if (!content.error.empty()) {
        image = DecodeContent(content, path.c_str());
        return false;  // tried again with the next call: permissions change without a change of the file
    }
    if (StampOf(content.before) != StampOf(content.after)) return false;
    image = DecodeContent(content, path.c_str());
    seen = StampOf(content.after);
    refusal = image.error;
    changed = Clock::now();
    writing = false;
    return image.pixels != nullptr;
}

LoadedImage LiveFile::WaitForFrame() {
    Clock::time_point good = Clock::now();  // when there was nothing to complain about
    for (;;) {
        LoadedImage image;
        if (TakeIfChanged(image)) {
            reported.clear();
            return image;
        }
        const Clock::time_point now = Clock::now();
        if (image.error.empty()) good = now;
        if (now - std::max(good, changed) >= kMissingAfter) {
            if (image.error == reported) return LoadedImage{};
            reported = image.error;
            return image;
        }
        std::this_thread::sleep_for(SuggestedWait());
    }
}
