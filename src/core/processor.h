// K. Which instruction sets this processor has beyond those of its kind.
#pragma once

namespace qx {

bool has_avx2() noexcept;    // and fused multiply-add
bool has_avx512() noexcept;  // foundation, vector lengths, double and quad words

}  // namespace qx
