// A second, slow implementation of the clustering and maintenance of one background cell, written on its own: plain
// loops over whole records, no templates, nothing shared with the analyzer's sources.
#pragma once

#include <array>
#include <vector>

struct NaiveCluster {
    std::array<int, 3> mean{}, sum{};
    int support = 0;
};

class NaiveCell {
 public:
    // Colour cells use three channels and squared distances, gray ones the first channel and plain distances. Channels
    // that are not used stay as they are.
    explicit NaiveCell(bool gray_in) : gray(gray_in) {}

    void cluster(int maxdist);  // requires at least one sample
    void update(int maxdist);
    void merge(int maxdist);
    void forget();

    bool gray;
    std::vector<std::array<int, 3>> samples;
    int count = 0;  // clusters in use; the slots behind keep what they last held
    std::array<NaiveCluster, 6> clusters{};
    std::array<int, 6> added{};

 private:
    int farthest_ = 0;  // of any sample from its centre, in the latest pass of an attempt
    int distance(const std::array<int, 3>& a, const std::array<int, 3>& b) const;
    int channels() const { return gray ? 1 : 3; }
    int nearest(const std::array<int, 3>& sample) const;
    bool attempt(std::vector<int>& previous);
    void pickCenters();
    void setMean(NaiveCluster& c, int over) const;
    void remove(int j);
};
