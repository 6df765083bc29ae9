// FindByte and CountByte: the next of a few bytes that matter, and how often one occurs, sixteen
// bytes at a time. The inner loops of whatever passes over text that it does not look into.

#ifndef VEXA_CORE_FIND_BYTE_H_
#define VEXA_CORE_FIND_BYTE_H_

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <cstddef>
#include <string_view>

namespace vexa {

// The offset at or behind `from` of the first byte of `text` that is one of `Stops`; the size of
// `text` when there is none.
template <char... Stops>
[[nodiscard]] size_t FindByte(std::string_view text, size_t from = 0) {
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

// How often a byte occurs in `text`. Best where that is often; where it is rare, searching is.
template <char Byte>
[[nodiscard]] int CountByte(std::string_view text) {
  int count = 0;
  size_t i = 0;
#ifdef __SSE2__
  for (; i + 16 <= text.size(); i += 16) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
    auto hits =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(Byte))));
    for (; hits != 0; hits &= hits - 1) ++count;
  }
#endif
  for (; i < text.size(); ++i) count += text[i] == Byte ? 1 : 0;
  return count;
}

}  // namespace vexa

#endif  // VEXA_CORE_FIND_BYTE_H_
