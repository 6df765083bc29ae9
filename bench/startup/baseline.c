// The least that any CGI program does: starts, writes the response and ends. What vexa takes longer
// than this for the same bytes is its own.

#include <unistd.h>

int main(void) {
  static const char response[] =
      "Content-type: text/html\r\n\r\n"
      "<html><body><h1>Hello</h1></body></html>\n";
  return write(1, response, sizeof response - 1) == (ssize_t)(sizeof response - 1) ? 1 : 0;
}
