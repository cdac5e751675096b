#pragma once

#include "kora/terms/term_manager.h"

// Array values: a constant array of a value under a chain of stores at
// numerals of values. Every array value has one normal form, so that two
// arrays are equal exactly when their normal forms are the same term:
//   - the default (the constant array's value) is the element that most
//     indices take, ties going to the element of the smallest index;
//   - each other index holds one store, and only where its element differs
//     from the default;
//   - the stores are in increasing order of index from the innermost out;
//   - elements that are arrays are in normal form themselves.
namespace kora::arrays {

// Whether t has the shape of an array value (in normal form or not).
bool is_array_value(const Term* t);

// The normal form of an array value.
const Term* normal_form(TermManager& mgr, const Term* a);

// (select a i) for an array value a and a numeral i: the element of the
// outermost store at i, else the default.
const Term* select_value(const Term* a, const Term* i);

// (store a i e) for an array value a, a numeral i and a value e, in normal
// form.
const Term* store_value(TermManager& mgr, const Term* a, const Term* i, const Term* e);

}  // namespace kora::arrays
