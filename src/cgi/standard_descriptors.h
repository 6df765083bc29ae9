// The three descriptors a program starts with. A server may leave some of them closed; the next
// file opened would then get their number, and what is printed would end up in it.

#ifndef VEXA_CGI_STANDARD_DESCRIPTORS_H_
#define VEXA_CGI_STANDARD_DESCRIPTORS_H_

namespace vexa {

// Opens /dev/null for each of the descriptors 0 to 2 that is closed. False when that fails.
[[nodiscard]] bool FillStandardDescriptors();

}  // namespace vexa

#endif  // VEXA_CGI_STANDARD_DESCRIPTORS_H_
