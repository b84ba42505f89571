// Pictures of one clip's events and tracks, made at once: the same bytes each time.
#pragma once

#include <map>
#include <string>

#include "media/camera_pictures.h"
#include "media/picture_desk.h"

namespace fleifeisa::host {

/// Writes into the directory `pictures` of a part: "12-picture.jpg", "12-box.jpg", "12-thumb.jpg" and "12-strip.jpg" of
/// event 12, "track-7.jpg" of track 7. A better picture takes the place of an earlier one.
class ClipPictures : public PictureMaker {
 public:
    explicit ClipPictures(const std::string& part);

    bool frame(const std::string& camera, PictureFrame frame, double patience) override;
    bool event(const std::string& camera, const CameraEvent& event) override;
    bool trackEnded(const std::string& camera, std::int64_t track) override;
    bool passed(const std::string& camera, std::int64_t time_ns) override;
    void finish(const std::string& camera, double patience) override;

 private:
    void write(const std::string& file, const std::string& jpeg);

    const std::string part_;
    CameraPictures pictures_;
};

}  // namespace fleifeisa::host
