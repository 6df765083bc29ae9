// Finding the next byte that matters to the tag scanner: the inner loop of every page.

#ifndef VEXA_ENGINE_TEXT_SCAN_H_
#define VEXA_ENGINE_TEXT_SCAN_H_

#include <cstddef>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

[[nodiscard]] constexpr bool EndsTextRun(char c) {
  return c == '<' || c == '\n' || c == '\r' || c == '\\';
}

// The offset of the first byte of `text` that ends a text run or escapes the next byte; its size
// when there is none.
[[nodiscard]] inline size_t TextRunLength(std::string_view text) {
  size_t i = 0;
#ifdef __SSE2__
  const __m128i tag = _mm_set1_epi8('<');
  const __m128i feed = _mm_set1_epi8('\n');
  const __m128i carriage = _mm_set1_epi8('\r');
  const __m128i escape = _mm_set1_epi8('\\');
  for (; i + 16 <= text.size(); i += 16) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
    __m128i ends =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, tag), _mm_cmpeq_epi8(bytes, feed)),
                     _mm_or_si128(_mm_cmpeq_epi8(bytes, carriage), _mm_cmpeq_epi8(bytes, escape)));
    auto found = static_cast<unsigned>(_mm_movemask_epi8(ends));
    if (found != 0) return i + static_cast<size_t>(__builtin_ctz(found));
  }
#endif
  while (i < text.size() && !EndsTextRun(text[i])) ++i;
  return i;
}

#endif  // VEXA_ENGINE_TEXT_SCAN_H_
