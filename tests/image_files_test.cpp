// Image files: exact bytes of good files, a clear refusal of all others, and a file that a camera keeps writing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

#include "image/ImageFiles.h"
#include "image/LiveFile.h"
#include "support/imageencoders.h"
#include "support/process.h"

namespace {

using namespace std::string_literals;

// An image without the need to release it.
struct Loaded {
    explicit Loaded(const LoadedImage& image) : width(image.width), height(image.height), error(image.error) {
        whole = image.pixels != nullptr;
        if (whole) pixels.assign(reinterpret_cast<char*>(image.pixels), static_cast<std::size_t>(width * height * 3));
        std::free(image.pixels);
        EXPECT_EQ(whole, error.empty()) << error;
        EXPECT_EQ(whole, width > 0 && height > 0);
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
    bool whole;
    int width, height;
    std::string error, pixels;
};

Loaded load(const std::string& bytes) {
    return Loaded(LoadImageBytes({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}));
}

std::string grey(const std::string& levels) {
    std::string pixels;
    for (const char level : levels) pixels.append(3, level);
    return pixels;
}

struct GoodCase {
    const char* what;
    std::string file;
    int width, height;
    std::string pixels;
};

std::vector<GoodCase> goodCases() {
    std::vector<GoodCase> cases = {
        {"binary pixmap", "P6\n2 1\n255\n\1\2\3\xff\0\x80"s, 2, 1, "\1\2\3\xff\0\x80"s},
        {"binary grey map", "P5 1 3 255\n\0\x7f\xff"s, 1, 3, grey("\0\x7f\xff"s)},
        {"a sample that looks like white space or a comment", "P5\n3 1\n255\n\n# "s, 3, 1, grey("\n# ")},
        {"plain pixmap", "P3\n1 2\n255\n1 2 3\n4 5 6\n", 1, 2, "\1\2\3\4\5\6"},
        {"plain grey map over odd lines", "P2 2\t2\r\n255 0  10\n\n20 30 ", 2, 2, grey("\0\n\x14\x1e"s)},
        {"comments", "P2#a\n#b\n 2 # 9 9\n1#c\r255#d\n7#e\n8#f\n", 2, 1, grey("\7\10")},
        {"leading zeros", "P2 01 001 0255 0009 ", 1, 1, grey("\t")},
        {"data behind the image", "P5\n1 1\n255\nAP5 1 1 255 B", 1, 1, grey("A")},
        // To the nearest level, halves up: 1 of 2 is 127.5; 1 of 4 is 63.75; 3 of 6 is 127.5.
        {"largest 2", "P2 3 1 2 0 1 2 ", 3, 1, grey("\0\x80\xff"s)},
        {"largest 4", "P5 5 1 4\n\0\1\2\3\4"s, 5, 1, grey("\0\x40\x80\xbf\xff"s)},
        {"largest 1", "P3 1 1 1 0 1 0\n", 1, 1, "\0\xff\0"s},
        // 128 of 65535 is 0.498, 129 is 0.502; high byte first.
        {"16 bits", "P5 4 1 65535\n\0\x80\0\x81\xff\xff\x80\x00"s, 4, 1, grey("\0\1\xff\x80"s)},
        {"largest 256", "P6 1 1 256\n\0\0\1\0\0\x80"s, 1, 1, "\0\xff\x80"s},
    };
#ifdef FLEIFEISA_HAVE_PNG
    const std::vector<png_color> palette = {{10, 20, 30}, {200, 100, 50}, {1, 2, 3}};
    const std::string nine = "\1\2\3\4\5\6\7\x8\x9\xa\xb\xc\xd\xe\xf\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b";
    const std::vector<std::string> rgb = {nine.substr(0, 9), nine.substr(9, 9), nine.substr(18, 9)};
    const GoodCase png[] = {
        {"PNG", encodePng(3, 8, PNG_COLOR_TYPE_RGB, false, rgb), 3, 3, nine},
        {"PNG, interlaced", encodePng(3, 8, PNG_COLOR_TYPE_RGB, true, rgb), 3, 3, nine},
        {"PNG, 1 bit", encodePng(9, 1, PNG_COLOR_TYPE_GRAY, false, {"\xa5\x80"s}), 9, 1,
         grey("\xff\0\xff\0\0\xff\0\xff\xff"s)},
        {"PNG, 4 bits, interlaced", encodePng(2, 4, PNG_COLOR_TYPE_GRAY, true, {"\x1f", "\x80"s}), 2, 2,
         grey("\x11\xff\x88\0"s)},
        {"PNG, 16 bits", encodePng(4, 16, PNG_COLOR_TYPE_GRAY, false, {"\0\x80\0\x81\xff\xff\x80\x00"s}), 4, 1,
         grey("\0\1\xff\x80"s)},
        {"PNG, alpha", encodePng(2, 8, PNG_COLOR_TYPE_RGBA, false, {"\1\2\3\0\4\5\6\xff"s}), 2, 1, "\1\2\3\4\5\6"},
        {"PNG, grey and alpha", encodePng(2, 8, PNG_COLOR_TYPE_GRAY_ALPHA, true, {"\1\2\3\0"s}), 2, 1, grey("\1\3")},
        {"PNG, palette", encodePng(3, 8, PNG_COLOR_TYPE_PALETTE, false, {"\2\1\0"s}, palette), 3, 1,
         "\1\2\3\xc8\x64\x32\x0a\x14\x1e"s},
        {"PNG, palette of 2 bits, interlaced", encodePng(3, 2, PNG_COLOR_TYPE_PALETTE, true, {"\x90"s}, palette), 3, 1,
         "\1\2\3\xc8\x64\x32\x0a\x14\x1e"s},
    };
    cases.insert(cases.end(), std::begin(png), std::end(png));
#endif
    return cases;
}

TEST(ImageFiles, ExactBytes) {
    for (const GoodCase& good : goodCases()) {
        SCOPED_TRACE(good.what);
        const Loaded image = load(good.file);
        EXPECT_EQ(image.error, "");
        EXPECT_EQ(image.width, good.width);
        EXPECT_EQ(image.height, good.height);
        EXPECT_EQ(image.pixels, good.pixels);
    }
}

#ifdef FLEIFEISA_HAVE_JPEG
int waves(int r, int c, int k) {
    return (r * 9 + c * 5 + k * 60 + r * c) % 256;
}

// The expected pixels come from the library's scalar code (JSIMD_FORCENONE=1), whatever processor this runs on.
TEST(ImageFiles, JpegBytesOfEveryProcessor) {
    for (const char* name : {"colour-420", "colour-progressive"}) {
        SCOPED_TRACE(name);
        const std::string file = FLEIFEISA_SOURCE_DIR "/tests/cases/images/"s + name;
        const Loaded image(LoadImageFile((file + ".jpg").c_str()));
        const Loaded expected(LoadImageFile((file + ".ppm").c_str()));
        EXPECT_EQ(image.error, "");
        EXPECT_EQ(expected.error, "");
        EXPECT_EQ(image.width, expected.width);
        EXPECT_TRUE(image.pixels == expected.pixels);
    }
}

TEST(ImageFiles, JpegOfGreyLevels) {
    for (const bool progressive : {false, true}) {
        const Loaded grey = load(encodeJpeg(9, 7, 1, JCS_GRAYSCALE, progressive, [](int, int, int) { return 200; }));
        EXPECT_EQ(grey.pixels, std::string(9 * 7 * 3, '\xc8')) << grey.error;
    }
}
#endif

struct BadCase {
    const char* what;
    std::string file;
    const char* error;  // part of the line
};

std::vector<BadCase> badCases() {
    std::vector<BadCase> cases = {
        {"empty", "", "it is empty"},
        {"junk", "GIF89a and so on", "its format is unknown; this build reads PNM"},
        {"bitmap", "P4 8 1\n\1", "bitmaps"},
        {"a letter behind the signature", "P6x 1 1 255 abc", "its format is unknown"},
        {"no size", "P6\n# only a comment", "it ends before its width"},
        {"no number", "P6 2 x 255\n", "no number stands for its height"},
        {"a negative width", "P5 -1 1 255 a", "no number stands for its width"},
        {"a number with letters", "P2 1 1 255 1a ", "no number stands for its samples"},
        {"width beyond 31 bits", "P5 99999999999999999999 1 255 a", "too large a number stands for its width"},
        {"no pixels", "P5 0 5 255 a", "it has no pixels"},
        {"too many pixels", "P5 9460 9459 255 a", "it announces 9460x9459 pixels"},
        {"an overflowing product", "P5 2147483647 2147483647 255 a", "it announces 2147483647x2147483647 pixels"},
        {"the most pixels, not there", "P5 9459 9459 255 a", "it is too short for its pixels"},
        {"the most plain pixels, not there", "P3 9459 9459 255 1 ", "it is too short for its pixels"},
        {"largest 0", "P5 1 1 0 a", "largest sample is not within 1 and 65535"},
        {"largest 65536", "P5 1 1 65536 ab", "largest sample is not within 1 and 65535"},
        {"sample above the largest", "P5 1 1 96 a", "a sample exceeds the largest"},
        {"plain sample above the largest", "P2 1 1 96 97 ", "a sample exceeds the largest"},
        {"a plain number that may go on", "P2 1 1 255 12", "it ends within a number"},
    };
#ifdef FLEIFEISA_HAVE_JPEG
    const std::string grey = encodeJpeg(16, 16, 1, JCS_GRAYSCALE, false, waves);
    std::string large = grey;  // height and width stand behind the marker's length and precision
    large.replace(large.find("\xff\xc0") + 5, 4, "\x20\0\x20\0"s);
    std::string bent = grey;  // a marker in the middle of the coded data
    bent.replace(bent.size() - 12, 2, "\xff\xd9");
    const BadCase jpeg[] = {
        {"JPEG of four inks", encodeJpeg(8, 8, 4, JCS_CMYK, false, waves), "it is a CMYK JPEG"},
        {"JPEG of pixels that are not there", large, "it is too short for its pixels"},
        {"JPEG that ends in the middle", bent, "it is damaged or ends early"},
        {"JPEG signature alone", "\xff\xd8\xff\xe0 and so on", "it is damaged or ends early"},
    };
    cases.insert(cases.end(), std::begin(jpeg), std::end(jpeg));
#endif
#ifdef FLEIFEISA_HAVE_PNG
    const std::string small = encodePng(1, 8, PNG_COLOR_TYPE_GRAY, false, {"a"});
    const std::string wide =
        "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x24\xf3\0\0\x24\xf3\x08\0\0\0\0"
        "\x7b\x2a\x9e\x39"s;
    const std::string nothing = encodePng(4, 8, PNG_COLOR_TYPE_PALETTE, false, {"\0\1\2\3"s}, {{1, 2, 3}});
    std::string flipped = small;
    flipped[flipped.find("IDAT") + 6] ^= 1;
    const BadCase png[] = {
        {"PNG of pixels that are not there", wide + small.substr(33), "too short for its pixels"},
        {"PNG with a wrong checksum", flipped, "it is damaged or ends early"},
        {"PNG with a colour outside the palette", nothing, "a colour outside the palette"},
        {"PNG signature alone", "\x89PNG\r\n\x1a\n", "it is damaged or ends early"},
    };
    cases.insert(cases.end(), std::begin(png), std::end(png));
#endif
    return cases;
}

TEST(ImageFiles, Refusals) {
    for (const BadCase& bad : badCases()) {
        SCOPED_TRACE(bad.what);
        const Loaded image = load(bad.file);
        EXPECT_FALSE(image.whole);
        EXPECT_NE(image.error.find(bad.error), std::string::npos) << image.error;
    }
}

std::vector<std::string> samples() {
    std::vector<std::string> files;
    for (const GoodCase& good : goodCases()) files.push_back(good.file);
#ifdef FLEIFEISA_HAVE_JPEG
    files.push_back(encodeJpeg(19, 13, 3, JCS_RGB, false, waves));
    files.push_back(encodeJpeg(19, 13, 3, JCS_RGB, true, waves));
    files.push_back(encodeJpeg(19, 13, 1, JCS_GRAYSCALE, false, waves));
#endif
    return files;
}

// Wherever a file ends: the whole image or none.
TEST(ImageFiles, TruncatedEverywhere) {
    for (const std::string& file : samples()) {
        const Loaded image = load(file);
        ASSERT_TRUE(image.whole) << image.error;
        for (std::size_t n = 0; n < file.size(); n++) {
            const Loaded part = load(file.substr(0, n));
            EXPECT_TRUE(!part.whole || part.pixels == image.pixels) << n << " bytes of " << file.substr(0, 20);
        }
    }
}

// No change of one byte upsets the loaders; Loaded checks that the result is an image or a refusal.
TEST(ImageFiles, EveryByteDamaged) {
    for (const std::string& file : samples())
        for (std::size_t i = 0; i < file.size(); i++)
            for (const int change : {0x01, 0x80, 0xff}) {
                std::string damaged = file;
                damaged[i] = static_cast<char>(damaged[i] ^ change);
                if (load(damaged).width > 1 << 20) FAIL() << "a size out of nothing";
            }
}

TEST(ImageFiles, Paths) {
    const TempDir dir;
    const std::string named = dir.write("picture.jpg", "P5 1 1 255\nA");  // the content counts
    EXPECT_EQ(Loaded(LoadImageFile(named.c_str())).pixels, "AAA");
    const std::string pipe = dir.path + "/pipe", locked = dir.write("locked", "P5 1 1 255\nA");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string large = dir.write("large", "P5 9459 9459 255\n");
    ASSERT_EQ(truncate(large.c_str(), kMaxImageFile + 1), 0);
    const struct {
        std::string path;
        const char* error;
    } cases[] = {{dir.path, "it is a directory."},
                 {dir.path + "/none", "it cannot be opened (No such file or directory)."},
                 {"", "it cannot be opened (No such file or directory)."},
                 {named + "/x", "it cannot be opened (Not a directory)."},
                 {pipe, "it is not a regular file."},
                 {"/dev/zero", "it is not a regular file."},
                 {large, "it is larger than 1 GiB."},
                 {dir.path + "/two\nlines", "/two?lines: it cannot be opened"}};
    for (const auto& bad : cases) {
        const Loaded image(LoadImageFile(bad.path.c_str()));
        EXPECT_NE(image.error.find(bad.error), std::string::npos) << image.error;
        EXPECT_EQ(image.error.rfind("Cannot load the image ", 0), 0u);
    }
    if (geteuid() != 0) {
        chmod(locked.c_str(), 0);
        EXPECT_FALSE(Loaded(LoadImageFile(locked.c_str())).whole);
    }
}

// --- a file that a camera keeps writing ---

class Live : public testing::Test {
 protected:
    // A frame of one level, as the camera writes it.
    static std::string frame(char level) { return "P5\n4 4\n255\n" + std::string(16, level); }
    void replace(const std::string& bytes) const {
        ASSERT_EQ(std::rename(dir.write("new", bytes).c_str(), path.c_str()), 0);
    }
    // The level of the frame that is taken at once; '-' for none.
    char take() {
        LoadedImage image;
        const bool taken = file.TakeIfChanged(image);
        EXPECT_EQ(taken, image.pixels != nullptr);
        error = image.error;
        const char level = taken ? static_cast<char>(image.pixels[0]) : '-';
        std::free(image.pixels);
        return level;
    }
    static void rest() { std::this_thread::sleep_for(2 * LiveFile::kSettle); }

    const TempDir dir;
    const std::string path = dir.path + "/live.pgm";
    LiveFile file{path};
    std::string error;
};

TEST_F(Live, TakesEachReplacementOnce) {
    EXPECT_EQ(take(), '-');
    EXPECT_NE(error.find("No such file"), std::string::npos);
    replace(frame('a'));
    rest();
    EXPECT_EQ(take(), 'a');
    for (const char level : {'b', 'b', 'c'}) {
        replace(frame(level));
        EXPECT_EQ(take(), level);
        EXPECT_EQ(take(), '-');
        EXPECT_EQ(error, "");
    }
    std::remove(path.c_str());
    EXPECT_EQ(take(), '-');
    EXPECT_NE(error.find("No such file"), std::string::npos);
    replace(frame('d'));
    rest();
    EXPECT_EQ(take(), 'd');
}

TEST_F(Live, AHalfWrittenFileIsNoFrame) {
    replace(frame('a'));
    rest();
    EXPECT_EQ(take(), 'a');
    std::ofstream camera(path, std::ios::binary | std::ios::trunc);
    camera << frame('b').substr(0, 20) << std::flush;
    EXPECT_EQ(take(), '-');
    EXPECT_EQ(error, "");  // still being written
    rest();
    EXPECT_EQ(take(), '-');
    EXPECT_NE(error.find("too short"), std::string::npos);
    camera << frame('b').substr(20) << std::flush;
    rest();
    EXPECT_EQ(take(), 'b');

    // Written over without a change of its size: the upper half is new, the lower still old.
    std::fstream over(path, std::ios::binary | std::ios::in | std::ios::out);
    over << frame('c').substr(0, 20) << std::flush;
    EXPECT_EQ(take(), '-');
    over << frame('c').substr(20) << std::flush;
    rest();
    EXPECT_EQ(take(), 'c');
}

TEST_F(Live, WaitsWithoutABusyLoopAndReportsAnOutageOnce) {
    const auto used = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto start = LiveFile::Clock::now();
    const auto before = used();
    const LoadedImage first = file.WaitForFrame(), second = file.WaitForFrame();
    EXPECT_EQ(first.pixels, nullptr);
    EXPECT_NE(first.error, "");
    EXPECT_EQ(second.error, "");
    EXPECT_GE(LiveFile::Clock::now() - start, 2 * LiveFile::kMissingAfter);
    EXPECT_LT(used() - before, LiveFile::kMissingAfter);
    std::thread camera([this] {
        rest();
        replace(frame('a'));
    });
    LoadedImage next = file.WaitForFrame();
    for (; next.pixels == nullptr; next = file.WaitForFrame()) EXPECT_EQ(next.error, "");  // the camera is slow
    const Loaded image(next);
    camera.join();
    EXPECT_EQ(image.pixels, std::string(48, 'a'));
}

}  // namespace
