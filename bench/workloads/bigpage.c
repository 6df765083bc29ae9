/* The same page from C: a text with every "&[name]" replaced. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  FILE* file = fopen("site/bigpage.vx", "rb");
  char* text = malloc(PAGE_BYTES + 1);
  size_t size = file ? fread(text, 1, PAGE_BYTES, file) : 0;
  text[size] = 0;
  fputs("Content-type: text/html\r\n\r\n", stdout);
  for (char *at = text, *next;; at = next + 7) {
    next = strstr(at, "&[name]");
    fwrite(at, 1, next ? (size_t)(next - at) : strlen(at), stdout);
    if (!next) return 0;
    fputs("Ann", stdout);
  }
}
