// Pictures of events, what goes of them, and what a crash leaves.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "media/best_view.h"
#include "media/camera_pictures.h"
#include "media/export.h"
#include "media/picture_desk.h"
#include "store/media_files.h"
#include "store/media_retention.h"
#include "store/mending.h"
#include "store/reader.h"
#include "store/schema.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
constexpr std::int64_t kSecond = 1'000'000'000, kDay = 86400 * kSecond;
constexpr int kWidth = 320, kHeight = 180;

/// Grey, with a chequered thing (or a smooth one) in the box.
PictureFrame scene(std::int64_t time_ns, const Box& box, std::uint8_t level, bool sharp = true) {
    PictureFrame frame{time_ns, kWidth, kHeight, std::vector<std::uint8_t>(kWidth * kHeight * 3, 100), {}, false};
    for (int y = std::max(0, box.top); y < std::min(kHeight, box.bottom()); ++y)
        for (int x = std::max(0, box.left); x < std::min(kWidth, box.right()); ++x)
            for (std::size_t i = 0; i < 3; ++i)
                frame.rgb[static_cast<std::size_t>(3 * (y * kWidth + x)) + i] =
                    static_cast<std::uint8_t>(sharp && (x / 4 + y / 4) % 2 != 0 ? 20 : level);
    return frame;
}

TEST(BestView, IsLargeWholeAndSharp) {
    const auto score = [](const Box& box, bool sharp = true) {
        const PictureFrame frame = scene(0, box, 200, sharp);
        return viewScore({kWidth, kHeight, frame.rgb}, box);
    };
    const double plain = score({100, 50, 40, 80});
    EXPECT_GT(score({100, 50, 44, 84}), plain);
    EXPECT_GT(plain, score({-10, 50, 50, 80}));             // cut off
    EXPECT_GT(plain, 2 * score({100, 50, 40, 80}, false));  // blurred
    EXPECT_GT(score({-500, -500, 10, 10}), 0);              // not in the picture at all
    const PictureFrame frame = scene(0, {}, 0);
    for (const Box& box : {Box{0, 0, 10, 20}, Box{300, 170, 20, 10}, Box{0, 0, 320, 180}, Box{-20, -20, 900, 900}}) {
        const Cut cut = thumbnailCut({kWidth, kHeight, frame.rgb}, box);
        EXPECT_TRUE(cut.left >= 0 && cut.top >= 0 && cut.left + cut.width <= kWidth && cut.top + cut.height <= kHeight);
        EXPECT_TRUE(cut.width >= std::min(box.width, kWidth) && cut.height >= std::min(box.height, kHeight));
    }
}

TEST(Filmstrip, OfALongEventIsThinnedAndSaysItsTimes) {
    const PictureFrame frame = scene(0, {0, 0, 320, 180}, 200, false);
    const SharedTile tile = tileOf({kWidth, kHeight, frame.rgb}, 0);
    for (const auto& [seconds, tiles, last] :
         {std::tuple{1, 1, 0}, {12, 12, 11}, {60, 60, 59}, {61, 31, 60}, {3600, 57, 3584}}) {
        Filmstrip strip;
        for (int i = 0; i < seconds; ++i) strip.add(std::make_shared<const Tile>(Tile{i * kSecond, tile->jpeg}));
        const Filmstrip::Strip made = strip.strip();
        EXPECT_EQ(std::ranges::count(made.details.substr(made.details.find("times_ns")), ','), tiles - 1) << seconds;
        EXPECT_EQ(made.end_ns, last * kSecond) << seconds;
        EXPECT_TRUE(made.details.starts_with("{\"tile\":[160,96],\"columns\":" + std::to_string(std::min(tiles, 10))));
        const Picture picture = pictureOf(made.jpeg);
        EXPECT_EQ(std::pair(picture.width, picture.height),
                  std::pair(std::min(tiles, 10) * 160, (tiles + 9) / 10 * 96));
        EXPECT_NEAR(picture.rgb[3 * (50 * static_cast<std::size_t>(picture.width) + 80)], 200, 4);  // within a tile
        EXPECT_NEAR(picture.rgb[3 * 80], 0, 12);                                                    // above it
    }
}

class Events : public testing::Test {
 protected:
    static CameraEvent event(std::int64_t number, EventKind kind, std::int64_t track, EventState state,
                             double seconds) {
        CameraEvent event;
        event.camera = "gate";
        event.number = number;
        event.kind = kind;
        event.track = track;
        event.state = state;
        event.start_ns = 10 * kSecond;
        event.time_ns = static_cast<std::int64_t>(seconds * 1e9);
        event.width = kWidth;
        event.height = kHeight;
        if (state == EventState::kEnd) event.end_ns = event.time_ns;
        return event;
    }
    void view(double seconds, std::int64_t track, const Box& box, std::uint8_t level) {
        PictureFrame frame = scene(static_cast<std::int64_t>(seconds * 1e9), box, level);
        frame.tile = true;
        frame.candidates = {{track, box, viewScore({kWidth, kHeight, frame.rgb}, box)}};
        pictures.frame(frame);
    }
    /// "1 picture@10 thumb@10 box@10", of each time that something was kept
    std::vector<std::string> kept;
    std::map<std::pair<std::int64_t, MediaKind>, MadePicture> latest;
    CameraPictures pictures{[this](const CameraEvent& event, const std::vector<MadePicture>& made) {
        std::string text = std::to_string(event.number);
        for (const MadePicture& one : made) {
            text += std::string(" ") + nameOf(one.media.kind) + '@' + std::to_string(one.media.start_ns / kSecond);
            latest[{event.number, one.media.kind}] = one;
        }
        kept.push_back(text);
    }};
};
constexpr auto kStart = EventState::kStart, kEnd = EventState::kEnd;

TEST_F(Events, GetTheBestViewTheirBoxAThumbnailAndAStrip) {
    view(7, 5, {10, 60, 20, 40}, 200);
    view(9, 5, {20, 60, 20, 40}, 200);
    view(10, 5, {100, 50, 40, 80}, 220);
    pictures.event(event(1, EventKind::kMotion, 0, kStart, 10));
    pictures.event(event(2, EventKind::kZone, 5, kStart, 10));
    pictures.event(event(3, EventKind::kAnalyzer, 0, kStart, 10));  // has none
    view(11, 6, {200, 20, 90, 150}, 240);                           // another track: the visit's, not the stay's
    view(12, 5, {140, 50, 42, 82}, 230);                            // a little better
    pictures.event(event(2, EventKind::kZone, 5, kEnd, 12));
    view(13, 5, {140, 40, 50, 100}, 210);  // still within the stay's three seconds
    view(16, 5, {140, 20, 60, 140}, 210);  // no more
    EXPECT_EQ(kept, (std::vector<std::string>{"1 picture@10 thumb@10 box@10", "2 picture@10 thumb@10 box@10",
                                              "2 picture@13 thumb@13 box@13", "2 strip@9"}));
    pictures.finish();
    ASSERT_EQ(kept.size(), 6u);
    EXPECT_EQ(kept[4], "1 picture@11 thumb@11 box@11");
    EXPECT_EQ(latest[std::pair(2, MediaKind::kStrip)].media.end_ns, 13 * kSecond);

    const Picture box = pictureOf(latest[std::pair(2, MediaKind::kBox)].jpeg);
    const Picture plain = pictureOf(latest[std::pair(2, MediaKind::kPicture)].jpeg);
    const auto at = [](const Picture& picture, int x, int y) {
        return picture.rgb[3 * static_cast<std::size_t>(y * picture.width + x) + 1];
    };
    EXPECT_EQ(std::pair(plain.width, plain.height), std::pair(kWidth, kHeight));
    EXPECT_NEAR(at(plain, 170, 37), 100, 12);  // above the thing: nothing drawn
    EXPECT_LT(at(box, 170, 38), 60);           // its frame
    EXPECT_NEAR(at(box, 10, 170), 100, 6);     // elsewhere nothing
    EXPECT_EQ(latest[std::pair(2, MediaKind::kBox)].media.details, "{\"box\":[140,40,50,100]}");
}

TEST_F(Events, WithoutATrackShowTheNextFrame) {
    CameraEvent told = event(4, EventKind::kExternal, 0, kStart, 20);
    told.start_ns = 20 * kSecond;
    told.end_ns = told.start_ns;
    pictures.event(told);
    EXPECT_TRUE(kept.empty());
    PictureFrame next = scene(20 * kSecond, {}, 0);
    pictures.frame(next);
    EXPECT_EQ(kept, std::vector<std::string>{"4 picture@20 thumb@20"});
    pictures.passed(30 * kSecond);
    pictures.event(event(4, EventKind::kExternal, 0, kEnd, 31));  // is over
    pictures.finish();
    EXPECT_EQ(kept.size(), 1u);
}

class Media : public testing::Test {
 protected:
    Media() {
        std::string path = (fs::temp_directory_path() / "media-XXXXXX").string();
        directory = ::mkdtemp(path.data());
    }
    ~Media() override { fs::remove_all(directory); }
    StoreOptions options() const {
        StoreOptions options;
        options.directory = directory;
        options.now = [] { return 20 * kDay; };
        options.retention.min_free = 0;
        options.retention.event_days = 0;
        return options;
    }
    static CameraEvent past(const std::string& camera, std::int64_t number) {
        CameraEvent event;
        event.camera = camera;
        event.number = number;
        event.start_ns = event.time_ns = number * kDay;
        event.end_ns = event.time_ns;
        return event;
    }
    static StoredMedia media(const std::string& camera, std::int64_t number, MediaKind kind, std::int64_t bytes) {
        return {kind, mediaFile(camera, number, number * kDay, kind), bytes, number * kDay, number * kDay, 0, 0, ""};
    }
    static void waitForMending(Store& store) {
        for (int i = 0; i < 600 && store.counts().mending; ++i) ::usleep(50'000);
    }
    bool there(const StoredMedia& one) const { return fs::exists(directory + '/' + one.file); }
    std::string directory;
};

TEST_F(Media, TheOldestClipsGoFirstEventsStay) {
    struct Row {
        const char* name;
        CameraLimits gate;
        std::int64_t media_bytes, free_bytes, ring;
        const char* expected;  ///< clips of gate, of yard; pictures of both
    };
    // Of each camera one event a day, 1 to 9: a clip of 100 bytes, a picture of 10. The gate's first one is marked.
    const Row rows[] = {
        {"no limit", {0, 0, 0}, 0, 0, 0, "123456789 123456789 18"},
        {"by age", {0, 5, 0}, 0, 0, 0, "156789 123456789 18"},
        {"by size of a camera", {450, 0, 0}, 0, 0, 0, "1789 123456789 18"},
        {"size, no clip is enough", {75, 0, 0}, 0, 0, 0, "1 123456789 17"},
        {"by size in all", {0, 0, 0}, 1300, 0, 0, "156789 456789 18"},
        {"by free space", {0, 0, 0}, 0, -350, 0, "1456789 3456789 18"},
        {"the recording counts, too", {0, 0, 0}, 1300, 0, 300, "16789 6789 18"},
        {"the recording goes when clips are gone", {0, 0, 0}, 800, 0, 1000, "1 none 18 ring 600"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(directory);
        fs::create_directory(directory);
        Database database(StateDirectory::databasePath(directory), Database::Mode::kReadWrite);
        migrate(database);
        database.run("INSERT INTO cameras VALUES(1, 'gate', '', ''), (2, 'yard', '', '')");
        RecordWriter writer(database);
        std::optional<Transaction> filling(database);
        for (const auto& [id, camera] : {std::pair(1, "gate"), std::pair(2, "yard")})
            for (int day = 1; day < 10; ++day) {
                writer.event(id, past(camera, day));
                writer.attach(id, day, media(camera, day, MediaKind::kPicture, 10));
                writer.attach(id, day, media(camera, day, MediaKind::kClip, 100));
            }
        database.run("UPDATE events SET keep = 1 WHERE id = " + std::to_string(rowOf(1, 1)));
        filling->commit();
        RetentionLimits host = options().retention;
        host.media_bytes = row.media_bytes;
        std::int64_t ring = row.ring;
        const RingUse use{[&ring] { return ring; }, [&ring] { return ring > 0 && ((ring -= 100), true); }};
        std::int64_t free_bytes = row.free_bytes;
        for (int step = 0; step < 30; ++step) {
            Transaction transaction(database);
            const std::int64_t before = database.integer("SELECT sum(bytes) FROM media");
            const std::vector<Expired> gone =
                pruneMedia(database, host, {{1, row.gate}, {2, {0, 0, 0}}}, use, 10 * kDay, free_bytes);
            free_bytes += before - database.integer("SELECT sum(bytes) FROM media");
            transaction.commit();
            if (gone.empty() && step > 0) break;
        }
        const auto clips = [&](int camera) {
            std::string days;
            Statement found = database.prepare("SELECT event FROM media WHERE kind = 4 AND camera = ? ORDER BY event");
            found.bind(camera);
            while (found.step()) days += std::to_string(found.integer(0) - rowOf(camera, 0));
            return days.empty() ? "none" : days;
        };
        std::string left = clips(1) + ' ' + clips(2) + ' ' +
                           std::to_string(database.integer("SELECT count(*) FROM media WHERE kind = 0"));
        if (row.ring != ring) left += " ring " + std::to_string(ring);
        EXPECT_EQ(left, row.expected);
        EXPECT_EQ(database.integer("SELECT count(*) FROM events"), 18);
        EXPECT_EQ(database.integer("SELECT count(*) FROM events WHERE clip = 3"),
                  18 - database.integer("SELECT count(*) FROM media WHERE kind = 4"));
        EXPECT_EQ(database.integer("SELECT count(*) FROM removals"),
                  36 - database.integer("SELECT count(*) FROM media"));
    }
}

TEST_F(Media, WhatACrashLeftIsMended) {
    const auto write = [this](const StoredMedia& one) { EXPECT_EQ(writeMedia(directory, one.file, "0123456789"), ""); };
    const auto whole = media("gate", 1, MediaKind::kPicture, 10), newer = media("gate", 2, MediaKind::kPicture, 3);
    const auto lost = media("gate", 3, MediaKind::kPicture, 10), lost_clip = media("gate", 3, MediaKind::kClip, 10);
    const auto rowless = media("gate", 2, MediaKind::kBox, 10), no_event = media("gate", 9, MediaKind::kThumb, 10);
    const auto no_camera = media("gone", 1, MediaKind::kStrip, 10),
               future = media("gate", 5000, MediaKind::kPicture, 10);
    {
        Database database(StateDirectory::databasePath(directory), Database::Mode::kReadWrite);
        migrate(database);
        Transaction filling(database);
        database.run("INSERT INTO cameras VALUES(1, 'gate', '', '')");
        RecordWriter writer(database);
        for (const int day : {1, 2, 3, 9}) writer.event(1, past("gate", day));
        writer.attach(1, 1, whole);
        writer.attach(1, 2, newer);
        for (const StoredMedia& one : {lost, lost_clip}) writer.attach(1, 3, one);
        filling.commit();
        write(whole);
        write(newer);
    }
    for (const auto& one : {rowless, no_event, no_camera, future}) write(one);
    fs::rename(directory + '/' + rowless.file, directory + '/' + rowless.file + ".part");
    std::ofstream(directory + "/media/gate/1970-01-02/notes.txt") << "somebody else's";
    fs::create_directories(directory + "/media/gate/1980-01-01");
    ::usleep(20'000);  // the filesystem's clock: what follows is younger
    StoreOptions soon = options();
    soon.now = [] { return 10 * kDay; };
    Store store(soon, nullptr);
    waitForMending(store);
    EXPECT_EQ(store.counts().mended_rows, 2);
    EXPECT_EQ(store.counts().mended_files, 3);
    EXPECT_TRUE(there(whole) && there(newer) && there(future));
    EXPECT_FALSE(there(no_event) || there(no_camera) || fs::exists(directory + '/' + rowless.file + ".part"));
    EXPECT_TRUE(fs::exists(directory + "/media/gate/1970-01-02/notes.txt"));
    EXPECT_FALSE(fs::exists(directory + "/media/gate/1980-01-01"));
    StoreReader reader(directory);
    EXPECT_EQ(reader.media("gate", 2).at(0).bytes, 10);  // a better one, whose row the crash took
    EXPECT_EQ(reader.event("gate", 3)->pictures, 0);
    EXPECT_EQ(reader.event("gate", 3)->clip, ClipState::kFailed);
    EXPECT_EQ(reader.event("gate", 1)->pictures, 1);
    EXPECT_TRUE(reader.check().empty());
}

TEST_F(Media, LimitsHoldForACameraThatIsNoLongerThere) {
    {
        StoreOptions busy = options();
        busy.keep_house = false;
        Store store(busy, nullptr);
        store.addCamera("gone", "", "");
        store.limit("gone", {0, 0, 5});
        for (const int day : {14, 16}) store.event(past("gone", day));
        ASSERT_TRUE(store.settle(30));
    }
    Store store(options(), nullptr);
    for (int i = 0; i < 400 && StoreReader(directory).event("gone", 14); ++i) ::usleep(50'000);
    EXPECT_FALSE(StoreReader(directory).event("gone", 14));
    EXPECT_TRUE(StoreReader(directory).event("gone", 16));
}

TEST_F(Media, MarkedEventsHaveALimitAndDaysAreTold) {
    StoreOptions limited = options();
    limited.retention.kept_bytes = 250'000'000;
    Store store(limited, nullptr);
    store.addCamera("gate", "", "");
    store.limit("gate", {1'000'000'000, 0, 0});
    waitForMending(store);  // these files are only said to be there
    for (int i = 15; i < 19; ++i) {
        store.event(past("gate", i));
        store.attach("gate", i, {media("gate", i, MediaKind::kClip, 100'000'000)});
    }
    ASSERT_TRUE(store.settle(30));
    EXPECT_EQ(store.keep("gate", 15, true), "");
    EXPECT_EQ(store.keep("gate", 16, true), "");
    EXPECT_EQ(store.keep("gate", 17, true), "the files of marked events may have 250 MB in all");
    const std::vector<MediaUse> use = store.use();
    ASSERT_EQ(use.size(), 1u);
    EXPECT_EQ(std::tuple(use[0].clips, use[0].kept, use[0].a_day), std::tuple(400'000'000, 200'000'000, 80'000'000));
    EXPECT_DOUBLE_EQ(use[0].days_that_fit, 12.5);
    EXPECT_EQ(store.keep("gate", 16, false), "");
    EXPECT_EQ(store.keep("gate", 17, true), "");
}

TEST_F(Media, AnExportHoldsAllAndGoesWithAnEvent) {
    Store store(options(), nullptr);
    store.addCamera("gate", "", "");
    waitForMending(store);
    CameraEvent told = past("gate", 15);
    told.text = "<script>\"'&";
    store.event(told);
    store.event(past("gate", 16));
    const auto thumb = media("gate", 15, MediaKind::kThumb, 3), clip = media("gate", 15, MediaKind::kClip, 3);
    const auto gone = media("gate", 16, MediaKind::kPicture, 3);
    for (const auto& one : {thumb, clip}) EXPECT_EQ(writeMedia(directory, one.file, "abc"), "");
    store.attach("gate", 15, {thumb, clip});
    store.attach("gate", 16, {gone});  // its file went while it was copied
    ASSERT_TRUE(store.settle(30));
    StoreReader reader(directory);
    std::vector<StoredEvent> events;
    reader.events({}, [&events](const StoredEvent& event) { events.push_back(event); });
    const std::string folder = directory + "/out/yard", zip = directory + "/exports/a.zip",
                      other = directory + "/exports/b";
    for (const std::string& path : {folder, zip}) {
        const ExportResult result = exportEvents(reader, directory, events, path, TimeZone("UTC"));
        EXPECT_EQ(std::tuple(result.events, result.files, result.missing), std::tuple(2u, 2u, 1u));
        EXPECT_THROW(exportEvents(reader, directory, events, path, TimeZone("UTC")), StoreError);  // exists
    }
    exportEvents(reader, directory, {events[1]}, other, TimeZone("UTC"));
    const auto text = [&folder](const char* name) {
        std::stringstream all;
        all << std::ifstream(folder + '/' + name).rdbuf();
        return all.str();
    };
    EXPECT_EQ(text("gate-15.mp4"), "abc");
    const std::string page = text("index.html");
    EXPECT_NE(page.find("src=\"gate-15-thumb.jpg\""), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;"), std::string::npos);
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_NE(text("events.json").find("{\"kind\":\"clip\",\"file\":\"gate-15.mp4\""), std::string::npos);
    EXPECT_EQ(store.remove("gate", 15), "");
    EXPECT_FALSE(fs::exists(zip) || fs::exists(zip + kExportList));
    EXPECT_TRUE(fs::exists(other + "/index.html") && fs::exists(folder));
    EXPECT_EQ(parseEventId("north-gate-7"), std::pair(std::string("north-gate"), std::int64_t{7}));
    for (const char* id : {"gate", "gate-", "-7", "gate-0", "gate-7x", "gate-99999999999999999999", ""})
        EXPECT_FALSE(parseEventId(id)) << id;
}

/// What does not fit into the queue is left out and counted; the caller never waits. What is there at the end is made.
TEST_F(Media, TheDeskTakesWhatFits) {
    Store store(options(), nullptr);
    store.addCamera("gate", "", "");
    PictureCounts counts;
    int taken = 0;
    {
        PictureDesk desk(store, directory);
        CameraEvent told = past("gate", 1);
        told.kind = EventKind::kExternal;
        store.event(told);
        desk.event("gate", told);
        for (int i = 0; i < 200; ++i) {
            PictureFrame large{kDay + i, 2000, 1500, std::vector<std::uint8_t>(9'000'000, 50), {}, true};
            taken += desk.frame("gate", std::move(large), 0) ? 1 : 0;
        }
        desk.finish("gate", 60);
        counts = desk.counts();
    }
    EXPECT_EQ(counts.left_out, 200 - taken);
    EXPECT_GT(counts.left_out, 0);
    EXPECT_EQ(counts.made, 3);  // picture, thumb, strip
    ASSERT_TRUE(store.settle(30));
    const std::vector<StoredMedia> media = StoreReader(directory).media("gate", 1);
    ASSERT_EQ(media.size(), 3u);
    for (const StoredMedia& one : media)
        EXPECT_EQ(fs::file_size(directory + '/' + one.file), static_cast<std::uintmax_t>(one.bytes));
}

}  // namespace
}  // namespace fleifeisa::host
