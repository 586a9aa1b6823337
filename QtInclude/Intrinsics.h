#pragma once

// The vector intrinsics. The compiler's own header takes undefined registers that it then
// overwrites, and warns of them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
