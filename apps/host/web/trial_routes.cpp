// Trying a change beside the camera, before it is made.
#include "http/message.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {

CameraTrials& WebServer::trials() const {
    changes();
    if (parts_.trials == nullptr) throw HttpError(503, "nothing can be tried here");
    return *parts_.trials;
}

void WebServer::addTrialRoutes() {
    const auto add = [this](const char* method, const std::string& pattern, Handle handle) {
        routes_.push_back({method, pattern, Need::kAdmin, Place::kStore, std::move(handle)});
    };
    const auto number = [](const Call& call) {
        const std::string& text = call.parts.find("trial")->second;
        if (text.size() != 1 || text[0] < '1' || text[0] > '0' + CameraTrials::kMost)
            throw HttpError(404, "there is no such trial");
        return text[0] - '0';
    };
    add("POST", "cameras/{camera}/trials", [this](Call& call) {
        const std::string change = JsonBody(call.request->body).object("change");
        const int begun = trials().begin(call.camera(), change.empty() ? "{}" : change);
        return jsonResponse(trials().state(call.camera(), begun));
    });
    add("GET", "cameras/{camera}/trials/{trial}",
        [this, number](Call& call) { return jsonResponse(trials().state(call.camera(), number(call))); });
    add("DELETE", "cameras/{camera}/trials/{trial}", [this, number](Call& call) {
        trials().end(call.camera(), number(call));
        return noContent();
    });
}

}  // namespace fleifeisa::host
