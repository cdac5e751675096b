#include "kora-adhoc/inverter.h"

namespace kora::frontend {

Inverter::~Inverter() = default;

// No complete inverter exists yet; `invert` says so. Supplying one means
// returning its factory here.
InverterFactory builtin_inverter() {
  return {};
}

}  // namespace kora::frontend
