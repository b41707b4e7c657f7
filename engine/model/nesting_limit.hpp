#pragma once

namespace kolva {

// How deeply a model tree or data value may nest. Written-out sums of that
// many terms (x1 + x2 + ... as model generators write them) nest as deep,
// so the limit is generous; the engine's calls run on a stack sized for it.
inline constexpr int kMaxNesting = 10'000;

}  // namespace kolva
