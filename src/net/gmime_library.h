// The library that takes mails apart, loaded when a page first reads one. Its functions are bound
// by name in one table, typed from the library's own headers.

#ifndef VEXA_NET_GMIME_LIBRARY_H_
#define VEXA_NET_GMIME_LIBRARY_H_

#include <gmime/gmime.h>

#include "core/string.h"

namespace vexa {

// Every function that is used, under its own name.
#define VEXA_GMIME_FUNCTIONS(X)                      \
  X(g_date_time_to_unix)                             \
  X(g_date_time_unref)                               \
  X(g_free)                                          \
  X(g_log_set_default_handler)                       \
  X(g_mime_content_type_is_type)                     \
  X(g_mime_data_wrapper_write_to_stream)             \
  X(g_mime_format_options_free)                      \
  X(g_mime_format_options_new)                       \
  X(g_mime_format_options_set_newline_format)        \
  X(g_mime_init)                                     \
  X(g_mime_message_get_mime_part)                    \
  X(g_mime_message_part_get_message)                 \
  X(g_mime_message_part_get_type)                    \
  X(g_mime_multipart_get_count)                      \
  X(g_mime_multipart_get_part)                       \
  X(g_mime_multipart_get_prologue)                   \
  X(g_mime_multipart_get_type)                       \
  X(g_mime_object_get_content_disposition_parameter) \
  X(g_mime_object_get_content_type)                  \
  X(g_mime_object_get_content_type_parameter)        \
  X(g_mime_object_get_disposition)                   \
  X(g_mime_object_write_to_stream)                   \
  X(g_mime_parser_construct_message)                 \
  X(g_mime_parser_new_with_stream)                   \
  X(g_mime_parser_options_free)                      \
  X(g_mime_parser_options_new)                       \
  X(g_mime_parser_options_set_fallback_charsets)     \
  X(g_mime_part_get_content)                         \
  X(g_mime_part_get_filename)                        \
  X(g_mime_part_get_type)                            \
  X(g_mime_stream_mem_get_byte_array)                \
  X(g_mime_stream_mem_new)                           \
  X(g_mime_stream_mem_new_with_buffer)               \
  X(g_mime_utils_header_decode_date)                 \
  X(g_mime_utils_header_decode_text)                 \
  X(g_object_unref)                                  \
  X(g_type_check_instance_is_a)                      \
  X(internet_address_group_get_members)              \
  X(internet_address_group_get_type)                 \
  X(internet_address_list_get_address)               \
  X(internet_address_list_length)                    \
  X(internet_address_list_parse)                     \
  X(internet_address_mailbox_get_addr)               \
  X(internet_address_mailbox_get_type)

struct GMimeLibrary {
#define VEXA_MEMBER(name) decltype(&::name) name;
  VEXA_GMIME_FUNCTIONS(VEXA_MEMBER)
#undef VEXA_MEMBER
};

// The loaded library; it stays loaded as long as the process. Null with `error` set when it cannot
// be loaded.
[[nodiscard]] const GMimeLibrary* LoadGMime(String& error);

}  // namespace vexa

#endif  // VEXA_NET_GMIME_LIBRARY_H_
