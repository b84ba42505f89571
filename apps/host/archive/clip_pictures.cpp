#include "archive/clip_pictures.h"

#include <filesystem>

#include "common/file_writer.h"
#include "store/media_files.h"

namespace fleifeisa::host {

ClipPictures::ClipPictures(const std::string& part)
    : part_(part),
      pictures_(
          [this](const CameraEvent& event, const std::vector<MadePicture>& made) {
              for (const MadePicture& picture : made)
                  write(std::to_string(event.number) + '-' + nameOf(picture.media.kind) + ".jpg", picture.jpeg);
          },
          [this](std::int64_t track, const MadePicture& thumb) {
              write("track-" + std::to_string(track) + ".jpg", thumb.jpeg);
          }) {}

void ClipPictures::write(const std::string& file, const std::string& jpeg) {
    std::filesystem::create_directories(part_ + "/pictures");
    FileWriter writer(part_ + "/pictures/" + file);
    writer.write(jpeg);
    writer.close();
}

bool ClipPictures::frame(const std::string&, PictureFrame frame, double) {
    pictures_.frame(frame);
    return true;
}

bool ClipPictures::event(const std::string&, const CameraEvent& event) {
    pictures_.event(event);
    return true;
}

bool ClipPictures::trackEnded(const std::string&, std::int64_t track) {
    pictures_.trackEnded(track);
    return true;
}

bool ClipPictures::passed(const std::string&, std::int64_t time_ns) {
    pictures_.passed(time_ns);
    return true;
}

void ClipPictures::finish(const std::string&, double) {
    pictures_.finish();
}

}  // namespace fleifeisa::host
