// States of the contour walk: the direction of travel along the boundary.
#pragma once

// A and DD travel down along a left-hand boundary, D and CC right along a lower one, C and BB up along a right-hand
// one, B and AA left along an upper one. Single letters are entered by a turn at an outer corner (and A at the start),
// double letters by a turn at an inner corner. The two states of a pair behave alike.
enum Moves { A = 0, AA = 1, B = 2, BB = 3, C = 4, CC = 5, D = 6, DD = 7 };
