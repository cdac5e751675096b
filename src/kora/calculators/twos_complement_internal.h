#pragma once

// The signed comparisons' range helper, visible to the tests that pin its
// exact results. Not part of the public calculator interface: nothing outside
// the comparison calculators and their tests includes it.

#include "kora/numbers/qnumber.h"

namespace kora::adhoccalculator::detail {

// Brings n, a pattern of width w that a signed comparison moved one step past
// an end of [0, 2^w), back toward that range:
//   n >= 2^w        n - 2^w        (once: 2^(w+1) stays at 2^w or above)
//   n < 0           2n + 2^(w-1)   (not n + 2^w; the calculators' choices
//                                   depend on this result and keep it)
//   otherwise       n
// w is at least 1.
QNumber twos_complement(const QNumber& n, unsigned long w);

}  // namespace kora::adhoccalculator::detail
