// Finds records while the components of one detection frame are associated, so that the cost of a frame is linear in
// the number of records. Every answer is what a walk over usedob from its front would give.
#pragma once

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "tracker/kscolortracker.h"

class ColorDiffTracker::FrameIndex {
 public:
    explicit FrameIndex(ColorDiffTracker& tracker)
        : T(tracker), keys(kMaxObjects), taken(kMaxObjects), place(kMaxObjects) {}

    // Begins frame `frame`, whose predecessor had labels up to `labels`.
    void Begin(int frame, int labels) {
        current = frame;
        std::fill(taken.begin(), taken.end(), std::uint8_t{0});
        std::fill(place.begin(), place.end(), -1);
        lowest = 0;
        parents.assign(static_cast<std::size_t>(labels) + 1, -1);
        holders.clear();
        repeated = false;
        for (int i = 0; i < T.numobjects; i++) {
            Refresh(T.usedob[i]);
            const Key& ob = KeyAt(i);
            Place(i);
            if (ob.id != 0) taken[static_cast<std::size_t>(T.usedob[i])] = 1;
            if (ob.framenum == frame - 1 && ob.label > 0 && ob.label <= labels) {
                int& first = parents[static_cast<std::size_t>(ob.label)];
                if (first < 0) first = i;
            }
            if (ob.framenum == frame) Note(i);
        }
    }

    // The first cell with id 0; kMaxObjects where there is none.
    int FirstFree() {
        while (lowest < kMaxObjects && taken[static_cast<std::size_t>(lowest)]) lowest++;
        return lowest;
    }

    // Position of the first record among the first n of usedob that was made in the previous frame with a label; -1.
    int Parent(int label, int n) const {
        const auto matches = [&](const Key& ob) { return ob.framenum == current - 1 && ob.label == label; };
        if (label >= static_cast<int>(parents.size())) return Walk(0, n, matches);
        const int first = parents[static_cast<std::size_t>(label)];
        if (first < 0) return -1;
        return matches(KeyAt(first)) ? first : Walk(first + 1, n, matches);  // its cell may have been handed out again
    }

    // Position of the first record among the first n that was made in this frame with an id; -1. Asked for the record
    // at position n, whose cell may stand further ahead in usedob too: then it finds itself there.
    int Holder(int id, int n) const {
        const auto matches = [&](const Key& ob) { return ob.framenum == current && ob.id == id; };
        if (place[static_cast<std::size_t>(T.usedob[n])] < n) return Walk(0, n, matches);
        const auto found = holders.find(id);
        if (!repeated && found == holders.end()) return -1;
        if (!repeated && found->second < n && matches(KeyAt(found->second))) return found->second;
        return Walk(0, n, matches);
    }

    // A position of usedob has been filled.
    void Place(int position) {
        int& first = place[static_cast<std::size_t>(T.usedob[position])];
        if (first < 0) first = position;
    }

    // The record in a cell has changed.
    void Refresh(int cell) {
        const Object& ob = T.Ob[cell];
        keys[static_cast<std::size_t>(cell)] = {ob.framenum, ob.id, ob.label};
    }

    // The record at a position has got its id, or another one than before.
    void Note(int position) {
        Refresh(T.usedob[position]);
        const int id = KeyAt(position).id;
        if (id != 0) taken[static_cast<std::size_t>(T.usedob[position])] = 1;
        const auto [found, fresh] = holders.try_emplace(id, position);
        if (fresh || found->second == position) return;
        const Key& other = KeyAt(found->second);
        // An id that another record gave up has a new holder. One that two records hold at once (ids wrap) is left to
        // the walk.
        if (other.framenum == current && other.id == id)
            repeated = true;
        else
            found->second = position;
    }

 private:
    // What is asked of a record. Records are far apart, so a walk over them would wait for memory at every step.
    struct Key {
        int framenum, id, label;
    };
    const Key& KeyAt(int position) const { return keys[static_cast<std::size_t>(T.usedob[position])]; }

    template <class F>
    int Walk(int from, int n, F matches) const {
        for (int i = from; i < n; i++)
            if (matches(KeyAt(i))) return i;
        return -1;
    }

    ColorDiffTracker& T;
    int current = 0;
    std::vector<Key> keys;                 // of each cell in use, up to date between two calls
    std::vector<std::uint8_t> taken;       // cells with an id
    std::vector<int> place;                // first position of each cell in usedob, or -1
    int lowest = 0;                        // no free cell lies below this one
    std::vector<int> parents;              // first position of the previous frame's record with each label, or -1
    std::unordered_map<int, int> holders;  // first position of this frame's record with each id
    bool repeated = false;                 // whether some id has two holders
};
