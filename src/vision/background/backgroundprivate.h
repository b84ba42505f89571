// What a MULTIPLE model keeps of its cells.
//
// Whole 4 x 4 cells live in compact form: a ClusterSet, and as samples nothing of their own as long as these are the
// pixels of the latest frames. The frames stand in a ring, and a cell's stage says how many of them are its samples. A
// cell that leaves out a frame (foreground) takes its samples out of the ring into blocks of its own until they have
// been used up. All other cells, and those that somebody holds, live in records.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "vision/background/backgroundmodel.h"
#include "vision/kernels/kernels.h"
#include "vision/zeropages.h"

struct BackgroundModel::Storage {
    static constexpr std::uint8_t kOwn = 4;  // stage of a cell with samples of its own: this and their number / 16
    static constexpr std::size_t kMostFull = 512;  // cells that are acted on together
    static constexpr std::uint8_t kRecord = 255;   // stage of a cell that lives in its record

    struct Lattice {
        int rows, cols, whole_rows, whole_cols;
        int first;   // its first cell
        int offset;  // of that cell's first pixel, down and right
        ZeroPages<kernels::CandidateList> lists;
        int list_stride, list_first;  // place of cell (i, j): list_first + i * list_stride + j
    };

    Storage(const GridColorDiff& grid, int rows, int cols);

    kernels::CandidateList& List(const Lattice& l, int i, int j) {
        return l.lists[l.list_first + i * l.list_stride + j];
    }
    // Gives a part of the samples their memory. Called while all cells learn, so that a sudden change of the whole
    // picture does not have to wait for it.
    void TouchSamples();
    // Puts the frame into the ring: its buffer where that is shared, else a copy.
    void Remember(const KsColorImage& CI);
    // The frame `back` frames ago, 0..3.
    const std::shared_ptr<unsigned char[]>& Frame(int back) const {
        return ring[(latest - static_cast<unsigned>(back)) % 4];
    }
    // Pixels of `count` whole cells of a row, from the frame `back` frames ago.
    void Load(const Lattice& l, int row, int first_col, int count, int back, kernels::PixelBlock* px) const;
    // The samples of a whole cell in the order gathered; returns their blocks' number, 0..3.
    int Samples(int k, kernels::PixelBlock (&px)[kernels::kFrames]);
    const Lattice& Of(int k) const { return lattices[k >= lattices[1].first]; }

    Lattice lattices[2] = {};  // main, shifted
    int width, height;         // frame, pixels
    // Per cell: how many of the latest frames are its samples, 0..3; or kOwn and how many blocks of its own it has,
    // 1..3; or kRecord.
    std::vector<std::uint8_t> stage;
    ZeroPages<kernels::ClusterSet> sets;                   // of the cells that do not live in records
    static constexpr int kMostOwn = kernels::kFrames - 1;  // blocks that a cell keeps; the last one comes from the ring
    ZeroPages<std::array<kernels::PixelBlock, kMostOwn>> samples;
    int touched = 0;  // cells whose samples have been given memory
    ZeroPages<KsBackgroundCell> records;
    std::vector<std::uint8_t> shared;  // cells whose record somebody holds
    std::vector<int> shared_cells;     // the same, listed
    std::shared_ptr<unsigned char[]> ring[4];
    unsigned latest = 0;
    std::vector<std::uint8_t> flags;         // scratch: cells to update
    std::vector<int> full;                   // scratch: columns of a row's cells that are full
    std::vector<kernels::PixelBlock> strip;  // scratch: samples of a row of cells
};
