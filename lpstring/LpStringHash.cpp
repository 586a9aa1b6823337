#include "lpstring/LpStringHash.h"

// Computed by the compiler, so that static initializers find it ready.
static constexpr Poly_Hash<32> ready(32, Hash_primitive_seed[32], 1);

Poly_Hash<32> LpStringHash::s_polyHash = ready;
