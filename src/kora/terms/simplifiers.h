#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kora/terms/term.h"

namespace kora {
class TermManager;
}

namespace kora::termsimpl {

// Constant folders. Each one is handed an operator symbol and its argument
// terms; when every argument is a value it returns the value of the
// application, otherwise it rebuilds the application unchanged. Division and
// remainder by zero follow the SMT-LIB definitions (udiv by 0 is all ones,
// urem by 0 is the dividend, and the signed forms are built on those).
class StdTermSimplifier {
 public:
  class simpl_fun {
   public:
    simpl_fun() = default;
    simpl_fun(const simpl_fun&) = default;
    simpl_fun& operator=(const simpl_fun&) = default;
    virtual ~simpl_fun() = default;
    virtual const Term* operator()(TermManager* mgr, const Symbol* s,
                                   const std::vector<const Term*>& args) = 0;
  };
};

#define KORA_DECLARE_FOLDER(Name)                                          \
  class Name final : public StdTermSimplifier::simpl_fun {                 \
   public:                                                                 \
    const Term* operator()(TermManager* mgr, const Symbol* s,              \
                           const std::vector<const Term*>& args) override; \
  }

// Bit-vector arithmetic.
KORA_DECLARE_FOLDER(BVAddSimpl);
KORA_DECLARE_FOLDER(BVSubSimpl);
KORA_DECLARE_FOLDER(BVNegSimpl);
KORA_DECLARE_FOLDER(BVMulSimpl);
KORA_DECLARE_FOLDER(BVLslSimpl);
KORA_DECLARE_FOLDER(BVLsrSimpl);
KORA_DECLARE_FOLDER(BVAsrSimpl);
KORA_DECLARE_FOLDER(BVUdivSimpl);
KORA_DECLARE_FOLDER(BVSdivSimpl);
KORA_DECLARE_FOLDER(BVUremSimpl);
KORA_DECLARE_FOLDER(BVSremSimpl);
// Bitwise.
KORA_DECLARE_FOLDER(BVNotSimpl);
KORA_DECLARE_FOLDER(BVAndSimpl);
KORA_DECLARE_FOLDER(BVOrSimpl);
KORA_DECLARE_FOLDER(BVXorSimpl);
// Comparisons.
KORA_DECLARE_FOLDER(BVUltSimpl);
KORA_DECLARE_FOLDER(BVUleSimpl);
KORA_DECLARE_FOLDER(BVSltSimpl);
KORA_DECLARE_FOLDER(BVSleSimpl);
KORA_DECLARE_FOLDER(BVCompSimpl);
// Structure.
KORA_DECLARE_FOLDER(BVConcatSimpl);
KORA_DECLARE_FOLDER(BVSelectSimpl);
KORA_DECLARE_FOLDER(BVZextSimpl);
KORA_DECLARE_FOLDER(BVSextSimpl);
KORA_DECLARE_FOLDER(BVRolSimpl);
KORA_DECLARE_FOLDER(BVRorSimpl);
// Boolean and generic.
KORA_DECLARE_FOLDER(NotSimpl);
KORA_DECLARE_FOLDER(AndSimpl);
KORA_DECLARE_FOLDER(OrSimpl);
KORA_DECLARE_FOLDER(IffSimpl);
KORA_DECLARE_FOLDER(EqualSimpl);
KORA_DECLARE_FOLDER(IteSimpl);

#undef KORA_DECLARE_FOLDER

// What fold_words found.
enum class WordFold : std::uint8_t { None, Word, True, False };

// The folders' path for machine words: the value of s applied to arguments
// that are numerals below 2^64, with values v[0..n), made without any term.
// Word: *out is the result, below 2^width of s's output; True, False: the
// result of a comparison or equality; None: the folders take their general
// path (widths past 64 bits, results of 2^64 or more, operators without a
// word form). Every folder's word path goes through here.
WordFold fold_words(const Symbol* s, const std::uint64_t* v, std::size_t n, std::uint64_t* out);

// Folds one application with the folder of its operator. Symbols without a
// folder (constants, constant arrays) are rebuilt as they are.
const Term* fold(TermManager* mgr, const Symbol* s, const std::vector<const Term*>& args);

}  // namespace kora::termsimpl
