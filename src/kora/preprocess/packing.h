#pragma once

// Bytes packed into words. Programs translated to bit-vectors build a word
// from its bytes as (bvor (bvshl ((_ zero_extend 24) b3) 24) ...), or with
// bvadd, or nested shifts of partial words. Where the parts cover disjoint
// bit ranges the word is their concatenation, and written so the
// elimination rules for concat and extract see it. The rewriting keeps
// every value in every model, so the model builder needs no step for it.
// The simplifier runs it once, after its first pass, where that pass met a
// candidate.

#include <cstddef>
#include <memory>
#include <vector>

#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::preprocess {

struct Packed {
  // The assertions with every packed word written as a concatenation.
  std::vector<const Term*> assertions;
  // By term identifier, what a term of the original graph became; null
  // where it stayed itself.
  std::vector<const Term*> images;
  // The bvor and bvadd applications written as concatenations.
  std::size_t rewritten = 0;
};

// A bvor or bvadd whose arguments, seen through zero extension, shifts by a
// numeral, concatenation and extraction, are made of parts of terms and
// zeros with no bit where both arguments have a part, becomes the
// concatenation of those parts (extractions) and zeros.
Packed pack_words(TermManager& mgr, const std::vector<const Term*>& assertions);

class Packer;

// Tells, term by term, which bvor and bvadd applications pack_words would
// rewrite, remembering the layouts it works out, so that asking along a
// long chain costs its length once.
class WordTest {
 public:
  explicit WordTest(TermManager& mgr);
  ~WordTest();
  WordTest(const WordTest&) = delete;
  WordTest& operator=(const WordTest&) = delete;
  bool packs(const Term* t);

 private:
  std::unique_ptr<Packer> packer_;
};

}  // namespace kora::preprocess
