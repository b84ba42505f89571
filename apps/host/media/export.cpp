#include "media/export.h"

#include <zip.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "store/media_files.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// "gate-12.jpg", "gate-12-box.jpg": flat, so that the page's links are plain.
std::string nameInExport(const StoredEvent& event, const StoredMedia& media) {
    return event.event.camera + '-' + fs::path(media.file).filename().string();
}

class Target {
 public:
    Target() = default;
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    virtual ~Target() = default;
    virtual void text(const std::string& name, const std::string& text) = 0;
    virtual void file(const std::string& name, const std::string& path) = 0;
    virtual void finish() = 0;
};

class Folder : public Target {
 public:
    explicit Folder(const std::string& path) : path_(path), unfinished_(path + kUnfinished) {
        fs::remove_all(unfinished_);
        fs::create_directories(unfinished_);
    }
    ~Folder() override {
        std::error_code error;
        fs::remove_all(unfinished_, error);
    }
    void text(const std::string& name, const std::string& text) override {
        std::ofstream out(unfinished_ / name, std::ios::binary);
        out.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
        if (!out) throw StoreError((unfinished_ / name).string() + ": cannot be written");
    }
    void file(const std::string& name, const std::string& path) override { fs::copy_file(path, unfinished_ / name); }
    void finish() override { fs::rename(unfinished_, path_); }

 private:
    const fs::path path_, unfinished_;
};

/// The library writes aside and gives the name at the end. Pictures and videos are compressed already.
class Zip : public Target {
 public:
    Zip(const std::string& path, const std::atomic<bool>* stop) : path_(path) {
        int error = 0;
        zip_.reset(zip_open(path.c_str(), ZIP_CREATE | ZIP_EXCL, &error));
        if (!zip_) throw StoreError(path + ": cannot be created: " + std::strerror(errno));
        if (stop)
            zip_register_cancel_callback_with_state(
                zip_.get(), [](zip_t*, void* asked) { return *static_cast<const std::atomic<bool>*>(asked) ? 1 : 0; },
                nullptr, const_cast<std::atomic<bool>*>(stop));
    }
    void text(const std::string& name, const std::string& text) override {
        texts_.push_back(std::make_unique<std::string>(text));  // read when the archive is closed
        add(name, zip_source_buffer(zip_.get(), texts_.back()->data(), texts_.back()->size(), 0), false);
    }
    void file(const std::string& name, const std::string& path) override {
        add(name, zip_source_file(zip_.get(), path.c_str(), 0, -1), true);
    }
    void finish() override {
        if (zip_close(zip_.get()) != 0) fail();
        static_cast<void>(zip_.release());
    }

 private:
    struct Discard {
        void operator()(zip_t* zip) const { zip_discard(zip); }
    };
    void add(const std::string& name, zip_source_t* source, bool stored) {
        const zip_int64_t index = source ? zip_file_add(zip_.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8) : -1;
        if (index < 0) {
            zip_source_free(source);
            fail();
        }
        if (stored) zip_set_file_compression(zip_.get(), static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
    }
    [[noreturn]] void fail() const { throw StoreError(path_ + ": " + zip_strerror(zip_.get())); }

    const std::string path_;
    std::vector<std::unique_ptr<std::string>> texts_;
    std::unique_ptr<zip_t, Discard> zip_;
};

}  // namespace

ExportResult exportEvents(StoreReader& reader, const std::string& directory, const std::vector<StoredEvent>& events,
                          const std::string& path, const TimeZone& zone, const std::atomic<bool>* stop) try {
    if (fs::exists(path)) throw StoreError(path + ": exists already");
    if (const fs::path parent = fs::path(path).parent_path(); !parent.empty()) fs::create_directories(parent);
    std::unique_ptr<Target> target;
    if (path.ends_with(".zip"))
        target = std::make_unique<Zip>(path, stop);
    else
        target = std::make_unique<Folder>(path);
    ExportResult result;
    std::vector<ExportedEvent> exported;
    std::string list;
    for (const StoredEvent& event : events) {
        ExportedEvent& one = exported.emplace_back();
        one.event = event;
        for (StoredMedia media : reader.media(event.event.camera, event.event.number)) {
            const std::string from = directory + '/' + media.file;
            if (!fs::exists(from)) {
                ++result.missing;
                continue;
            }
            media.file = nameInExport(event, media);
            target->file(media.file, from);
            one.files.push_back(std::move(media));
            ++result.files;
        }
        list += eventId(event.event.camera, event.event.number) + '\n';
    }
    result.events = exported.size();
    target->text("events.json", exportJson(exported));
    target->text("index.html", exportPage(exported, zone));
    // Named before it is there: a deletion must not miss it.
    const fs::path place = fs::path(directory) / kExportDirectory;
    if (fs::weakly_canonical(fs::path(path).parent_path()) == fs::weakly_canonical(place))
        if (const std::string fault = writeMedia(
                directory, std::string(kExportDirectory) + '/' + fs::path(path).filename().string() + kExportList,
                list);
            !fault.empty())
            throw StoreError(fault);
    target->finish();
    return result;
} catch (const fs::filesystem_error& error) {
    throw StoreError(error.what());
}

}  // namespace fleifeisa::host
