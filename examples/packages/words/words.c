/* The package `words`: functions for texts, a variable, and pages that use them. */

#include <ctype.h>
#include <vexa/package.h>

/* title(text): every word with a capital. */
static int title(vexa_context *context, void *data, const vexa_text *arguments, size_t count) {
  size_t i;
  int inside = 0;
  char *copy = (char *)vexa_allocate(context, arguments[0].length);
  (void)data;
  (void)count;
  if (copy == NULL) return VEXA_ERROR;
  for (i = 0; i < arguments[0].length; ++i) {
    const unsigned char c = (unsigned char)arguments[0].bytes[i];
    copy[i] = (char)(inside ? c : toupper(c));
    inside = isalnum(c) || c >= 0x80;
  }
  return vexa_set_result(context, vexa_bytes(copy, arguments[0].length));
}

/* countwords(text): how many words it has. */
static int countwords(vexa_context *context, void *data, const vexa_text *arguments, size_t count) {
  char number[24];
  size_t i, words = 0, digit = sizeof number;
  int inside = 0;
  (void)data;
  (void)count;
  for (i = 0; i < arguments[0].length; ++i) {
    const int letter = !isspace((unsigned char)arguments[0].bytes[i]);
    if (letter && !inside) ++words;
    inside = letter;
  }
  do {
    number[--digit] = (char)('0' + words % 10);
    words /= 10;
  } while (words != 0);
  return vexa_set_result(context, vexa_bytes(number + digit, sizeof number - digit));
}

/* shorten(text, length): at most that many bytes, cut behind a word. */
static int shorten(vexa_context *context, void *data, const vexa_text *arguments, size_t count) {
  size_t i, length = 0, end;
  (void)data;
  (void)count;
  for (i = 0; i < arguments[1].length; ++i) {
    const char c = arguments[1].bytes[i];
    if (c < '0' || c > '9' || length > 1000000) {
      vexa_set_error(context, vexa_string("the length is not a number"));
      return VEXA_ERROR;
    }
    length = length * 10 + (size_t)(c - '0');
  }
  if (arguments[0].length <= length) return vexa_set_result(context, arguments[0]);
  for (end = length; end > 0 && arguments[0].bytes[end] != ' '; --end) {
  }
  return vexa_set_result(context, vexa_bytes(arguments[0].bytes, end > 0 ? end : length));
}

static int init(vexa_context *context) {
  if (vexa_add_function(context, "title", "text", title, NULL) != VEXA_OK ||
      vexa_add_function(context, "countwords", "text", countwords, NULL) != VEXA_OK ||
      vexa_add_function(context, "shorten", "text, length", shorten, NULL) != VEXA_OK) {
    vexa_set_error(context, vexa_error(context));
    return VEXA_ERROR;
  }
  return vexa_add_variable(context, "words_version", vexa_string("1.0"));
}

VEXA_PACKAGE("words", "1.0", init, NULL)
