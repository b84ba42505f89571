// What a camera sees at a place, and why.
#include <algorithm>
#include <array>

#include "common/text.h"
#include "web/arguments.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

constexpr int kMostSide = 16'384, kMostId = 99'999;

/// A whole number that may be absent; what it is not is an error.
std::optional<int> wholeNumber(const HttpRequest& request, const char* name, int most) {
    if (request.argument(name).empty()) return std::nullopt;
    return static_cast<int>(numberArgument(request, name, 0, 0, most));
}

WhyQuestion questionOf(const HttpRequest& request) {
    WhyQuestion question;
    const auto x = wholeNumber(request, "x", kMostSide), y = wholeNumber(request, "y", kMostSide);
    if (x.has_value() != y.has_value()) throw HttpError(400, "x, y: expected both or neither");
    if (x) question.at = {*x, *y};
    question.object = wholeNumber(request, "object", kMostId);
    question.layer = request.argument("layer");
    constexpr std::array<std::string_view, 6> kLayers = {"", "difference", "confidence", "edges", "labels", "age"};
    if (std::ranges::find(kLayers, question.layer) == kLayers.end())
        throw HttpError(400, "layer: expected difference, confidence, edges, labels or age");
    return question;
}

HttpResponse answerOf(const WhyAnswer& answer) {
    if (!answer.fault.empty()) {
        // Of a place or an object that is not there the analyzer speaks as of the question.
        const bool asked_wrongly = answer.fault.starts_with("cell:");
        return errorResponse(asked_wrongly ? 400 : 503, answer.fault);
    }
    if (answer.layer.empty()) return jsonResponse(answer.json);
    return jsonResponse(answer.json.substr(0, answer.json.size() - 1) + ",\"layer\":\"" + base64(answer.layer) + "\"}");
}

}  // namespace

std::optional<HttpResponse> WebServer::why(Call& call) {
    if (!known(call.camera())) throw HttpError(404, "there is no such camera");
    if (!parts_.why) throw HttpError(503, "nobody can ask here");
    const WhyQuestion question = questionOf(*call.request);
    const auto take = [answer = call.answer](const WhyAnswer& given) { answer(answerOf(given)); };
    if (!parts_.why->of(call.camera())->ask(question, take))
        throw HttpError(503, "too many ask this camera, try again");
    return std::nullopt;
}

void WebServer::addWhyRoutes() {
    routes_.push_back(
        {"GET", "cameras/{camera}/why", Need::kView, Place::kNow, [this](Call& call) { return why(call); }});
}

}  // namespace fleifeisa::host
