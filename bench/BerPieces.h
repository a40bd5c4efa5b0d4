// How both sides of the benchmark get the bytes that they read.
#pragma once

namespace bench {

// Of a piece of a message, as from a stream; the last one is shorter.
inline constexpr int pieceSize = 4096;

}  // namespace bench
