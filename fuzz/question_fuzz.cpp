// Questions to an analyzer that explains itself, cut as they come from the socket, between and at the frames of a small
// scene: every whole line has one answer, whose parts are within their bounds, and the tracker stays as it is.
#include <fcntl.h>

#include "bytes.h"
#include "explain/explainer.h"
#include "support/asker.h"

namespace {

using namespace fleifeisa::explain;

constexpr int kWidth = 24, kHeight = 17;

KsColorImage picture(int number) {
    const auto size = static_cast<std::size_t>(kWidth) * kHeight * 3;
    auto* bytes = static_cast<unsigned char*>(std::malloc(size));
    for (std::size_t i = 0; i < size; i++)
        bytes[i] = static_cast<unsigned char>(number > 8 && i / 3 % kWidth < 12 ? 220 : 60 + (i * 7 + number) % 9);
    KsColorImage image;
    image.KsReadImageMemory(bytes, kHeight, kWidth);
    image.Share();
    return image;
}

// What a question could have changed: the labels, confidences and thresholds of the frame, and all clusters.
double checksum(const ColorDiffTracker& t) {
    double sum = t.clt + 3 * t.cht + t.numobjects;
    for (int k = 0; k < t.G->cnum; k++) {
        const KsBackgroundCell cell = t.B->Look(k);
        sum += t.G->conf[k] + 5 * t.G->label[k] + 7 * cell.nclusters;
        for (int i = 0; i < cell.nclusters; i++) sum += cell.support[i] * (cell.clusters[i].R + 1);
    }
    return sum;
}

void take(Asker& asker, std::size_t& answered) {
    for (const Asker::Answer& answer : asker.take()) {
        answered++;
        FUZZ_CHECK(answer.json.size() <= kMostJson && answer.json.front() == '{' && answer.json.back() == '}',
                   "%zu bytes of JSON", answer.json.size());
        FUZZ_CHECK(answer.layer.size() <= kMostPlaces, "%zu bytes of a layer", answer.layer.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int always = open("/dev/null", O_RDONLY);
    Bytes in(data, size);
    Asker asker;
    Explainer explainer(asker.there);
    const control parameters{6, 0.25f, 0.5f, 1.0f, 2.0f};
    FrameCycle cycle(in.byte() % 2 == 0 ? COLOR : IR, parameters.bg_frames);
    std::size_t answered = 0, lines = 0;
    for (int number = 1; number <= 14; number++) {
        KsColorImage image = number == 4 ? KsColorImage() : picture(number);
        streamin message{};
        std::string time = std::to_string(number).insert(0, 1, ' ');
        message.timestamp = time.data();
        message.sequence_num = number;
        const Phase phase = cycle.Begin(image, parameters);
        const double before = cycle.Tracker() != nullptr ? checksum(*cycle.Tracker()) : 0;
        explainer.Frame({cycle, phase, image, message, parameters});
        FUZZ_CHECK(cycle.Tracker() == nullptr || checksum(*cycle.Tracker()) == before, "frame %d changed", number);
        cycle.End(image);
        image.KsFreeImageMemory();
        const std::string sent = in.text(static_cast<std::size_t>(in.byte()));
        for (const char c : sent) lines += c == '\n';
        if (!sent.empty()) asker.send(sent);
        for (std::size_t turn = 0; turn < sent.size() + 2; turn++) {
            explainer.waitFor(always);
            take(asker, answered);
        }
    }
    FUZZ_CHECK(answered <= lines + 14, "%zu answers to %zu lines", answered, lines);
    if (in.byte() % 2 == 0) asker.hangUp();
    explainer.waitFor(always);
    return 0;
}
