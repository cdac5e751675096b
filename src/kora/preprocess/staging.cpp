#include "kora/preprocess/staging.h"

#include <algorithm>
#include <string>

namespace kora::preprocess {

std::size_t Staging::commit(const std::vector<const Term*>& free) {
  std::size_t n = 0;
  for (const Term* c : staged_) {
    const Term* x = c->arg(0);
    // A calculator may also record a value for an argument that has one
    // already (a valued Boolean ite branch); that constraint says nothing.
    if (std::find(free.begin(), free.end(), x) == free.end()) continue;
    target_.add_model_constraint(c, true);
    if (x->type()->is_bool()) target_.set_adhoc_value(x, c->arg(1));
    ++n;
  }
  std::string text = log_.str();
  if (!text.empty()) {
    text.pop_back();  // endlog puts the last newline back
    target_.log(2) << text << endlog;
  }
  discard();
  return n;
}

}  // namespace kora::preprocess
