// Finding the next byte that matters to the tag scanner: the inner loops of every page.

#ifndef VEXA_ENGINE_TEXT_SCAN_H_
#define VEXA_ENGINE_TEXT_SCAN_H_

#include <cstddef>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vexa {

// The offset at or behind `from` of the first byte of `text` that is one of `Stops`; the size of
// `text` when there is none.
template <char... Stops>
[[nodiscard]] inline size_t FindByte(std::string_view text, size_t from = 0) {
  size_t i = from;
#ifdef __SSE2__
  for (; i + 16 <= text.size(); i += 16) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
    __m128i hits = _mm_setzero_si128();
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(Stops)))), ...);
    auto found = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (found != 0) return i + static_cast<size_t>(__builtin_ctz(found));
  }
#endif
  while (i < text.size() && !((text[i] == Stops) || ...)) ++i;
  return i;
}

// The offset of the first byte of `text` that ends a text run or escapes the next byte; its size
// when there is none.
[[nodiscard]] inline size_t TextRunLength(std::string_view text) {
  return FindByte<'<', '\n', '\r', '\\'>(text);
}

// The offset just behind the `>` that ends a tag whose attributes begin at `from`, going by the
// rule that double quotes hide it; npos when `text` ends first.
[[nodiscard]] inline size_t TagEnd(std::string_view text, size_t from) {
  for (size_t i = from;; ++i) {
    i = FindByte<'>', '"'>(text, i);
    if (i < text.size() && text[i] == '>') return i + 1;
    if (i < text.size()) i = FindByte<'"'>(text, i + 1);
    if (i >= text.size()) return std::string_view::npos;
  }
}

}  // namespace vexa

#endif  // VEXA_ENGINE_TEXT_SCAN_H_
