#include "support/statetrace.h"

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

std::string Text(const char* format, auto... values) {
    char line[256];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

std::string Hex(const StateHash& hash) {
    return Text("%016llx", static_cast<unsigned long long>(hash.value));
}

template <class Integer>
StateHash OfInts(const Integer* v, int n) {
    StateHash h;
    h.Ints(v, static_cast<std::size_t>(n));
    return h;
}
StateHash OfDoubles(const double* v, int n) {
    StateHash h;
    h.Doubles(v, static_cast<std::size_t>(n));
    return h;
}

// For every cell: sample and cluster counts, then the clusters in use. Counts cells per number of clusters.
StateHash OfBackground(const BackgroundModel& model, int (&per_count)[KsBackgroundCell::kMaxClusters + 1]) {
    StateHash h;
    const auto colours = [&](const auto* v, int n) {
        for (int i = 0; i < n; i++) {
            h.Int(v[i].R);
            h.Int(model.CIr == COLOR ? v[i].G : 0);
            h.Int(model.CIr == COLOR ? v[i].B : 0);
        }
    };
    for (int k = 0; k < model.cnum; k++) {
        const KsBackgroundCell& cell = model.cd[k];
        per_count[cell.nclusters]++;
        h.Int(cell.nsamples);
        h.Int(cell.nclusters);
        colours(cell.clusters, cell.nclusters);
        colours(cell.clustersum, cell.nclusters);
        h.Ints(cell.support, static_cast<std::size_t>(cell.nclusters));
        h.Ints(cell.added, static_cast<std::size_t>(cell.nclusters));
    }
    return h;
}

// The sign of what is no number depends on the processor, and nothing reads it.
double WithoutSign(double v) {
    return std::isnan(v) ? std::copysign(v, 1.0) : v;
}

std::string Records(const ColorDiffTracker& tracker) {
    std::string text;
    for (int pos = 0; pos < tracker.numobjects; pos++) {
        const int slot = tracker.usedob[pos];
        const Object& o = tracker.Ob[slot];
        if (o.framenum != tracker.t) continue;
        text += Text("obj pos=%d slot=%d id=%d label=%d numframes=%d area=%d rc=%d cc=%d", pos, slot, o.id, o.label,
                     o.numframes, o.area, o.rc, o.cc);
        text += Text(" box=%d,%d,%d,%d numcells=%d conf=%.17g\n parents %d", o.h.minr, o.h.maxr, o.h.minc, o.h.maxc,
                     o.numcells, WithoutSign(o.conf), o.numparents);
        for (int i = 0; i < o.numparents; i++) text += Text(" %d:%d", o.parents[i], static_cast<int>(o.dist[i]));
        int length = 0;
        std::string points;
        for (const ContNode* q = o.fnode; q != nullptr; q = q->link, length++)
            points += Text(" %d,%d%s", q->r, q->c, q->keepnode ? "*" : "");
        text += Text("\n contour %d", length) + points + "\n";
    }
    return text;
}

std::string Thresholds(const ColorDiffTracker& tracker) {
    return Text("thr clt=%.17g cht=%.17g numlabel=%d draws=%lld nextid=%d used=%d\n", WithoutSign(tracker.clt),
                WithoutSign(tracker.cht), tracker.G->numlabel, random_draws::count, tracker.NextTmpObId,
                tracker.numobjects);
}

}  // namespace

void StateHash::Bytes(const std::string& bytes) {
    for (const char ch : bytes) value = (value ^ static_cast<unsigned char>(ch)) * 1099511628211ULL;
}

void StateHash::Int(std::int32_t v) {
    for (int shift = 0; shift < 32; shift += 8)
        value = (value ^ (static_cast<std::uint32_t>(v) >> shift & 255)) * 1099511628211ULL;
}

void StateHash::Double(double v) {
    const auto bits = std::isnan(v) ? 0x7ff8000000000000ULL : std::bit_cast<std::uint64_t>(v);
    Int(static_cast<std::int32_t>(bits));
    Int(static_cast<std::int32_t>(bits >> 32));
}

void StateHash::Doubles(const double* v, std::size_t n) {
    for (std::size_t i = 0; i < n; i++) Double(v[i]);
}

std::string TraceBlock(const ReplayedFrame& frame) {
    static const char* const kModes[] = {"none", "first", "learn", "detect"};
    const GridColorDiff& g = *frame.tracker.G;
    const int pixels = g.NofR * g.NofC;
    int per_count[KsBackgroundCell::kMaxClusters + 1] = {};
    const StateHash background = OfBackground(*frame.tracker.B, per_count);
    std::string text = Text("frame %d mode %s size %dx%d cells %d\n", frame.number,
                            kModes[static_cast<int>(frame.phase)], g.NofC, g.NofR, g.cnum) +
                       Thresholds(frame.tracker);
    text += "fnv RedD=" + Hex(OfInts(g.RedD, pixels)) + " GreenD=" + Hex(OfInts(g.GreenD, pixels)) +
            " BlueD=" + Hex(OfInts(g.BlueD, pixels)) + "\n";
    text += "fnv diff=" + Hex(OfDoubles(g.diff, g.cnum)) + " conf=" + Hex(OfDoubles(g.conf, g.cnum)) +
            " der_conf=" + Hex(OfDoubles(g.der_conf, g.cnum)) + " label=" + Hex(OfInts(g.label, g.cnum)) + "\n";
    text += "fnv bg=" + Hex(background) + " nclusters";
    for (const int count : per_count) text += Text(" %d", count);
    return text + "\n" + (frame.phase == Phase::kDetection ? Records(frame.tracker) : "");
}

std::string GoldenLine(const ReplayedFrame& frame) {
    const GridColorDiff& g = *frame.tracker.G;
    const auto pixels = static_cast<std::size_t>(g.NofR) * static_cast<std::size_t>(g.NofC);
    const auto cells = static_cast<std::size_t>(g.cnum);
    int per_count[KsBackgroundCell::kMaxClusters + 1] = {};
    StateHash counters, differences, confidences, labels, records, reply;
    counters.Bytes(Thresholds(frame.tracker));
    for (const auto* plane : {g.RedD, g.GreenD, g.BlueD}) differences.Ints(plane, pixels);
    for (const double* plane : {g.diff, g.conf, g.der_conf}) confidences.Doubles(plane, cells);
    labels.Ints(g.label, cells);
    records.Bytes(Records(frame.tracker));
    reply.Bytes(frame.reply);
    std::string line = Text("%d %c", frame.number, "nfld"[static_cast<int>(frame.phase)]);
    for (const StateHash& h :
         {counters, differences, confidences, labels, OfBackground(*frame.tracker.B, per_count), records, reply})
        line += Text(" %08x", static_cast<unsigned>(h.value ^ h.value >> 32));
    return line;
}

std::string GoldenDifference(const std::string& expected, const std::string& actual) {
    std::istringstream a(expected), b(actual);
    for (const char* part : kParts) {
        std::string x, y;
        a >> x;
        b >> y;
        if (x != y) return part;
    }
    return "";
}
