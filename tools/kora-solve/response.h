#pragma once

#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "kora-solve/backend.h"

namespace kora::solve {

// One response of a solver, as far as the drivers need to tell them apart.
struct Reply {
  enum class Kind : unsigned char {
    End,    // the output ended (or the deadline passed: ask the stream)
    Word,   // a bare symbol such as sat or unsupported; text is the symbol
    Error,  // (error "...") ; text is the message
    Other,  // anything else; text is the response as written, cut short
  };
  Kind kind = Kind::End;
  std::string text;
};

// Reads the answers of an SMT-LIB 2 solver from a stream, one response at a
// time, without reading past it (the solver may still be waiting for the next
// command). This is the only place that knows the S-expression reader.
class ResponseReader {
 public:
  explicit ResponseReader(std::istream& in);
  ~ResponseReader();
  ResponseReader(const ResponseReader&) = delete;
  ResponseReader& operator=(const ResponseReader&) = delete;

  Reply next();
  // The next response other than `success` and `unsupported`, which answer
  // the set-up commands of some solvers.
  Reply next_answer();
  // The answer to (get-value ...) of the requests, in order. Throws
  // std::runtime_error saying what was wrong with it.
  std::vector<Value> values(const std::vector<ValueRequest>& requests);
  // The answer to (get-info :reason-unknown); empty when it is not one.
  std::string reason_unknown();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kora::solve
