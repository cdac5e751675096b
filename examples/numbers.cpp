// A short tour of QNumber: exact rationals that stay in two machine words
// while they fit and move to GMP when they do not.
#include <iostream>

#include "kora/numbers/qnumber.h"

int main() {
  using kora::QNumber;
  QNumber third = QNumber(1) / 3L;
  QNumber sum = third + third + third;
  std::cout << "1/3 + 1/3 + 1/3 = " << sum << (sum.is_small() ? " (small)" : " (big)") << '\n';

  QNumber big = QNumber(0x7fffffffffffffffL) + 1L;
  std::cout << "2^63 - 1 + 1 = " << big << (big.is_small() ? " (small)" : " (big)") << '\n';

  QNumber p;
  kora::BVNumber::pow2(100, &p);
  std::cout << "2^100 = " << p << '\n';
  return 0;
}
