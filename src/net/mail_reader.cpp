// Reading mails. Which parts are texts and which are attachments is decided here; the library knows
// the grammar.

#include "net/mail_reader.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "core/memory_limit.h"
#include "core/text.h"
#include "core/utf8.h"
#include "net/charset.h"
#include "net/gmime_library.h"
#include "net/html_text.h"
#include "net/mail_check.h"
#include "net/mail_text.h"

namespace vexa {

namespace {

constexpr int kDeepestPart = 20;
constexpr int kMostAttachments = 100;

// The library ends the process when memory runs out: what it may need is asked for first, so that a
// lack of it is found here.
void ExpectMemory(size_t bytes) {
  constexpr size_t kForItself = 4 * 1024 * 1024;
  void* probe = std::malloc(bytes + kForItself);
  if (probe == nullptr) throw std::bad_alloc();
  // Written to, so that asking is not optimised away.
  *static_cast<volatile char*>(probe) = 0;
  std::free(probe);
}

// A text for one line of a list: control characters would end it, or worse.
String OneLine(std::string_view text) {
  String line = ToUtf8(text);
  String shown;
  for (char c : line.view()) {
    const bool control = static_cast<unsigned char>(c) < ' ' || c == '\x7F';
    shown.Accumulate(control ? ' ' : c);
  }
  shown.StripWhitespace();
  return shown;
}

String WithLineFeeds(std::string_view text) {
  String lines;
  lines.Reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const bool ends = text[i] == '\r';
    lines.Accumulate(ends ? '\n' : text[i]);
    if (ends && i + 1 < text.size() && text[i + 1] == '\n') ++i;
  }
  return lines;
}

// Reads one mail with the library.
class Reader {
 public:
  Reader(const GMimeLibrary& library, AttachmentSink& sink, ReceivedMail& mail)
      : gmime_(library),
        sink_(sink),
        mail_(mail),
        options_(library.g_mime_parser_options_new(), library.g_mime_parser_options_free) {
    // In this order: bytes that are no UTF-8 are taken for what most senders mean.
    const char* charsets[] = {"utf-8", "windows-1252", nullptr};
    gmime_.g_mime_parser_options_set_fallback_charsets(options_.get(), charsets);
  }

  void ReadHead(std::string_view head);
  // False when the sink wants no more.
  bool ReadBody(std::string_view raw);

 private:
  template <typename T>
  auto Owned(T* object) {
    return std::unique_ptr<T, void (*)(void*)>(object, gmime_.g_object_unref);
  }
  template <typename T>
  bool Is(T* object, GType type) {
    return object != nullptr &&
           gmime_.g_type_check_instance_is_a(reinterpret_cast<GTypeInstance*>(object), type) != 0;
  }

  String Decoded(std::string_view value);
  String SenderOf(std::string_view from);
  bool ReadPart(GMimeObject* part, int depth);
  bool ReadLeaf(GMimeObject* part);
  bool ReadMessage(GMimeObject* part);
  bool AddText(String& text, bool& has, std::string_view piece);
  bool IsText(GMimeObject* part, const char* subtype);
  String TextOf(GMimeObject* part);
  String ContentOf(GMimeObject* part);
  bool AddAttachment(std::string_view name, std::string_view content);

  const GMimeLibrary& gmime_;
  AttachmentSink& sink_;
  ReceivedMail& mail_;
  std::unique_ptr<GMimeParserOptions, void (*)(GMimeParserOptions*)> options_;
  int attachments_ = 0;
  bool has_text_ = false;
  bool has_html_ = false;
};

// --- Headers ---------------------------------------------------------------------------------

String Reader::Decoded(std::string_view value) {
  const String utf8 = ToUtf8(value);
  char* decoded = gmime_.g_mime_utils_header_decode_text(options_.get(), utf8.c_str());
  String shown = decoded == nullptr ? utf8 : OneLine(decoded);
  gmime_.g_free(decoded);
  return shown;
}

void Reader::ReadHead(std::string_view head) {
  std::vector<MailHeader> raw;
  for (size_t at = 0; at < head.size();) {
    const std::string_view line = NextMailLine(head, at);
    const size_t value = HeaderNameEnd(line);
    if (value != 0) {
      raw.push_back({line.substr(0, value - 1), line.substr(value)});
    } else if (!raw.empty()) {
      raw.back().value.Append(line);  // folded; it begins with white space
    }
  }
  for (MailHeader& header : raw) {
    const bool is_date = EqualsIgnoreCase(header.name, "Date");
    if (is_date && !mail_.time) {
      GDateTime* date = gmime_.g_mime_utils_header_decode_date(header.value.c_str());
      if (date != nullptr) {
        mail_.time = gmime_.g_date_time_to_unix(date);
        gmime_.g_date_time_unref(date);
      }
    }
    if (mail_.sender.empty() && EqualsIgnoreCase(header.name, "From")) {
      mail_.sender = SenderOf(header.value);
    }
    mail_.headers.push_back({std::move(header.name), Decoded(header.value)});
  }
}

// The first address, also where it stands in a group.
String Reader::SenderOf(std::string_view from) {
  const String utf8 = ToUtf8(from);
  const auto list = Owned(gmime_.internet_address_list_parse(options_.get(), utf8.c_str()));
  InternetAddressList* addresses = list.get();
  for (int i = 0; addresses != nullptr && i < gmime_.internet_address_list_length(addresses); ++i) {
    InternetAddress* address = gmime_.internet_address_list_get_address(addresses, i);
    if (Is(address, gmime_.internet_address_group_get_type())) {
      InternetAddressList* members = gmime_.internet_address_group_get_members(
          reinterpret_cast<InternetAddressGroup*>(address));
      if (members == nullptr || gmime_.internet_address_list_length(members) == 0) continue;
      address = gmime_.internet_address_list_get_address(members, 0);
    }
    if (!Is(address, gmime_.internet_address_mailbox_get_type())) continue;
    const char* found = gmime_.internet_address_mailbox_get_addr(
        reinterpret_cast<InternetAddressMailbox*>(address));
    return found == nullptr ? String() : OneLine(found);
  }
  return {};
}

// --- Parts -----------------------------------------------------------------------------------

bool Reader::ReadBody(std::string_view raw) {
  // The library gives up on a header that ends without a blank line.
  String mended;
  const size_t head = MailHead(raw).size();
  const std::string_view behind = raw.substr(head);
  if (!behind.starts_with("\r\n") && !behind.starts_with("\n")) {
    mended = String::Concat({raw.substr(0, head), "\r\n", behind});
    raw = mended;
  }
  const auto stream = Owned(gmime_.g_mime_stream_mem_new_with_buffer(raw.data(), raw.size()));
  const auto parser = Owned(gmime_.g_mime_parser_new_with_stream(stream.get()));
  const auto message = Owned(gmime_.g_mime_parser_construct_message(parser.get(), options_.get()));
  if (message == nullptr) return true;
  if (!ReadPart(gmime_.g_mime_message_get_mime_part(message.get()), 1)) return false;
  if (!has_text_ && has_html_) mail_.text = TextOfHtml(mail_.html);
  return true;
}

bool Reader::ReadPart(GMimeObject* part, int depth) {
  if (part == nullptr || depth > kDeepestPart) return true;
  if (Is(part, gmime_.g_mime_message_part_get_type())) return ReadMessage(part);
  if (!Is(part, gmime_.g_mime_multipart_get_type())) return ReadLeaf(part);
  auto* multipart = reinterpret_cast<GMimeMultipart*>(part);
  const int count = gmime_.g_mime_multipart_get_count(multipart);
  // Without a boundary nobody can tell the parts: then all of it is text.
  const char* prologue = gmime_.g_mime_multipart_get_prologue(multipart);
  if (count == 0 && prologue != nullptr) AddText(mail_.text, has_text_, ToUtf8(prologue));
  for (int i = 0; i < count; ++i) {
    if (!ReadPart(gmime_.g_mime_multipart_get_part(multipart, i), depth + 1)) return false;
  }
  return true;
}

bool Reader::IsText(GMimeObject* part, const char* subtype) {
  const char* disposition = gmime_.g_mime_object_get_disposition(part);
  if (disposition != nullptr && EqualsIgnoreCase(disposition, "attachment")) return false;
  GMimeContentType* type = gmime_.g_mime_object_get_content_type(part);
  return type != nullptr && gmime_.g_mime_content_type_is_type(type, "text", subtype) != 0;
}

// Adds a piece. Always true.
bool Reader::AddText(String& text, bool& has, std::string_view piece) {
  if (std::exchange(has, true)) text.Append("\n");
  text.Append(WithLineFeeds(piece));
  return true;
}

bool Reader::ReadLeaf(GMimeObject* part) {
  if (!Is(part, gmime_.g_mime_part_get_type())) return true;
  if (IsText(part, "plain")) return AddText(mail_.text, has_text_, TextOf(part));
  if (IsText(part, "html")) return AddText(mail_.html, has_html_, TextOf(part));
  const char* name = gmime_.g_mime_part_get_filename(reinterpret_cast<GMimePart*>(part));
  return AddAttachment(name == nullptr ? "" : name, ContentOf(part));
}

// A message inside is a file: what is in it is not this mail's to say.
bool Reader::ReadMessage(GMimeObject* part) {
  constexpr std::string_view kExtension = ".eml";
  const auto out = Owned(gmime_.g_mime_stream_mem_new());
  GMimeMessage* message =
      gmime_.g_mime_message_part_get_message(reinterpret_cast<GMimeMessagePart*>(part));
  if (message != nullptr) {
    GMimeFormatOptions* format = gmime_.g_mime_format_options_new();
    gmime_.g_mime_format_options_set_newline_format(format, GMIME_NEWLINE_FORMAT_DOS);
    (void)gmime_.g_mime_object_write_to_stream(reinterpret_cast<GMimeObject*>(message), format,
                                               out.get());
    gmime_.g_mime_format_options_free(format);
  }
  const char* sent = gmime_.g_mime_object_get_content_disposition_parameter(part, "filename");
  if (sent == nullptr) sent = gmime_.g_mime_object_get_content_type_parameter(part, "name");
  String name = sent == nullptr || *sent == '\0' ? "attachment" : sent;
  const bool named =
      name.size() > kExtension.size() && EqualsIgnoreCase(name.from(name.length() - 4), kExtension);
  if (!named) name.cat(kExtension);
  const GByteArray* bytes =
      gmime_.g_mime_stream_mem_get_byte_array(reinterpret_cast<GMimeStreamMem*>(out.get()));
  return AddAttachment(name, {reinterpret_cast<const char*>(bytes->data), bytes->len});
}

String Reader::ContentOf(GMimeObject* part) {
  GMimeDataWrapper* content = gmime_.g_mime_part_get_content(reinterpret_cast<GMimePart*>(part));
  if (content == nullptr) return {};
  const auto out = Owned(gmime_.g_mime_stream_mem_new());
  (void)gmime_.g_mime_data_wrapper_write_to_stream(content, out.get());
  const GByteArray* bytes =
      gmime_.g_mime_stream_mem_get_byte_array(reinterpret_cast<GMimeStreamMem*>(out.get()));
  return std::string_view(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

String Reader::TextOf(GMimeObject* part) {
  const String bytes = ContentOf(part);
  const char* charset = gmime_.g_mime_object_get_content_type_parameter(part, "charset");
  String text;
  const bool named = charset != nullptr && !EqualsIgnoreCase(charset, "us-ascii");
  if (!named || !ConvertToUtf8(bytes, charset, text)) text = ToUtf8(bytes);
  return text;
}

bool Reader::AddAttachment(std::string_view name, std::string_view content) {
  if (++attachments_ > kMostAttachments) return true;
  return sink_.Take(OneLine(name), content);
}

}  // namespace

std::string_view ReceivedMail::Header(std::string_view name) const {
  for (const MailHeader& header : headers) {
    if (EqualsIgnoreCase(header.name, name)) return header.value;
  }
  return {};
}

// The library needs more where memory is short than it may have; how much that is, the size of the
// mail bounds.
bool PrepareMailReader(String& error) {
  const MemoryLimitLifted lifted;
  return LoadGMime(error) != nullptr;
}

bool ReadMail(std::string_view raw, MailParts parts, AttachmentSink& sink, ReceivedMail& mail,
              String& error) {
  const MemoryLimitLifted lifted;
  const GMimeLibrary* library = LoadGMime(error);
  if (library == nullptr) return false;
  const bool all = parts == MailParts::All;
  ExpectMemory(all ? MeasureMail(raw).memory : MailHead(raw).size() * 4);
  Reader reader(*library, sink, mail);
  reader.ReadHead(MailHead(raw));
  return !all || reader.ReadBody(raw);
}

}  // namespace vexa
