#include "support/state_hash.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

#include "vision/background/randomdraws.h"

namespace {

const char* const kParts[] = {"frame",       "mode",   "thresholds and counters", "pixel differences",
                              "confidences", "labels", "background model",        "records and contours",
                              "reply bytes"};

std::string format(const char* pattern, auto... values) {
    char line[256];
    std::snprintf(line, sizeof line, pattern, values...);
    return line;
}

std::string hex(const StateHash& hash) {
    return format("%016llx", static_cast<unsigned long long>(hash.value));
}

template <class Integer>
StateHash ofInts(const Integer* v, int n) {
    StateHash h;
    h.ints(v, static_cast<std::size_t>(n));
    return h;
}
StateHash ofDoubles(const double* v, int n) {
    StateHash h;
    h.doubles(v, static_cast<std::size_t>(n));
    return h;
}

// For every cell: sample and cluster counts, then the clusters in use. Counts cells per number of clusters.
StateHash ofBackground(const BackgroundModel& model, int (&per_count)[KsBackgroundCell::kMaxClusters + 1]) {
    StateHash h;
    const auto colours = [&](const auto* v, int n) {
        for (int i = 0; i < n; i++) {
            h.integer(v[i].R);
            h.integer(model.CIr == COLOR ? v[i].G : 0);
            h.integer(model.CIr == COLOR ? v[i].B : 0);
        }
    };
    for (int k = 0; k < model.cnum; k++) {
        const KsBackgroundCell& cell = model.cd[k];
        per_count[cell.nclusters]++;
        h.integer(cell.nsamples);
        h.integer(cell.nclusters);
        colours(cell.clusters, cell.nclusters);
        colours(cell.clustersum, cell.nclusters);
        h.ints(cell.support, static_cast<std::size_t>(cell.nclusters));
        h.ints(cell.added, static_cast<std::size_t>(cell.nclusters));
    }
    return h;
}

// The sign of what is no number depends on the processor, and nothing reads it.
double withoutSign(double v) {
    return std::isnan(v) ? std::copysign(v, 1.0) : v;
}

std::string records(const ColorDiffTracker& tracker) {
    std::string text;
    for (int pos = 0; pos < tracker.numobjects; pos++) {
        const int slot = tracker.usedob[pos];
        const Object& o = tracker.Ob[slot];
        if (o.framenum != tracker.t) continue;
        text += format("obj pos=%d slot=%d id=%d label=%d numframes=%d area=%d rc=%d cc=%d", pos, slot, o.id, o.label,
                       o.numframes, o.area, o.rc, o.cc);
        text += format(" box=%d,%d,%d,%d numcells=%d conf=%.17g\n parents %d", o.h.minr, o.h.maxr, o.h.minc, o.h.maxc,
                       o.numcells, withoutSign(o.conf), o.numparents);
        for (int i = 0; i < o.numparents; i++) text += format(" %d:%d", o.parents[i], static_cast<int>(o.dist[i]));
        int length = 0;
        std::string points;
        for (const ContNode* q = o.fnode; q != nullptr; q = q->link, length++)
            points += format(" %d,%d%s", q->r, q->c, q->keepnode ? "*" : "");
        text += format("\n contour %d", length) + points + "\n";
    }
    return text;
}

std::string thresholds(const ColorDiffTracker& tracker) {
    return format("thr clt=%.17g cht=%.17g numlabel=%d draws=%lld nextid=%d used=%d\n", withoutSign(tracker.clt),
                  withoutSign(tracker.cht), tracker.G->numlabel, random_draws::count, tracker.NextTmpObId,
                  tracker.numobjects);
}

}  // namespace

void StateHash::bytes(const std::string& bytes) {
    for (const char ch : bytes) value = (value ^ static_cast<unsigned char>(ch)) * 1099511628211ULL;
}

void StateHash::integer(std::int32_t v) {
    for (int shift = 0; shift < 32; shift += 8)
        value = (value ^ (static_cast<std::uint32_t>(v) >> shift & 255)) * 1099511628211ULL;
}

void StateHash::real(double v) {
    const auto bits = std::isnan(v) ? 0x7ff8000000000000ULL : std::bit_cast<std::uint64_t>(v);
    integer(static_cast<std::int32_t>(bits));
    integer(static_cast<std::int32_t>(bits >> 32));
}

void StateHash::doubles(const double* v, std::size_t n) {
    for (std::size_t i = 0; i < n; i++) real(v[i]);
}

std::string traceBlock(const ReplayedFrame& frame) {
    static constexpr const char* kModes[] = {"none", "first", "learn", "detect"};
    const GridColorDiff& g = *frame.tracker.G;
    const int pixels = g.NofR * g.NofC;
    int per_count[KsBackgroundCell::kMaxClusters + 1] = {};
    const StateHash background = ofBackground(*frame.tracker.B, per_count);
    std::string text = format("frame %d mode %s size %dx%d cells %d\n", frame.number,
                              kModes[static_cast<int>(frame.phase)], g.NofC, g.NofR, g.cnum) +
                       thresholds(frame.tracker);
    text += "fnv RedD=" + hex(ofInts(g.RedD, pixels)) + " GreenD=" + hex(ofInts(g.GreenD, pixels)) +
            " BlueD=" + hex(ofInts(g.BlueD, pixels)) + "\n";
    text += "fnv diff=" + hex(ofDoubles(g.diff, g.cnum)) + " conf=" + hex(ofDoubles(g.conf, g.cnum)) +
            " der_conf=" + hex(ofDoubles(g.der_conf, g.cnum)) + " label=" + hex(ofInts(g.label, g.cnum)) + "\n";
    text += "fnv bg=" + hex(background) + " nclusters";
    for (const int count : per_count) text += format(" %d", count);
    return text + "\n" + (frame.phase == Phase::kDetection ? records(frame.tracker) : "");
}

std::string goldenLine(const ReplayedFrame& frame) {
    const GridColorDiff& g = *frame.tracker.G;
    const auto pixels = static_cast<std::size_t>(g.NofR) * static_cast<std::size_t>(g.NofC);
    const auto cells = static_cast<std::size_t>(g.cnum);
    int per_count[KsBackgroundCell::kMaxClusters + 1] = {};
    StateHash counters, differences, confidences, labels, objects, reply;
    counters.bytes(thresholds(frame.tracker));
    for (const auto* plane : {g.RedD, g.GreenD, g.BlueD}) differences.ints(plane, pixels);
    for (const double* plane : {g.diff, g.conf, g.der_conf}) confidences.doubles(plane, cells);
    labels.ints(g.label, cells);
    objects.bytes(records(frame.tracker));
    reply.bytes(frame.reply);
    std::string line = format("%d %c", frame.number, "nfld"[static_cast<int>(frame.phase)]);
    for (const StateHash& h :
         {counters, differences, confidences, labels, ofBackground(*frame.tracker.B, per_count), objects, reply})
        line += format(" %08x", static_cast<unsigned>(h.value ^ h.value >> 32));
    return line;
}

std::string goldenDifference(const std::string& expected, const std::string& actual) {
    std::istringstream a(expected), b(actual);
    for (const char* part : kParts) {
        std::string x, y;
        a >> x;
        b >> y;
        if (x != y) return part;
    }
    return "";
}
