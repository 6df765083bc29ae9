// Putting messages together.

#include "net/mail_builder.h"

#include <sys/random.h>

#include <algorithm>
#include <cstddef>

#include "core/base64.h"
#include "core/number.h"
#include "core/text.h"
#include "core/utf8.h"
#include "net/mail_header.h"
#include "net/mail_text.h"

namespace vexa {

namespace {

constexpr size_t kLongestLine = 998;  // bytes, without the line end
constexpr size_t kBase64Line = 76;

// 128 bits of chance as hexadecimal digits.
String RandomDigits() {
  constexpr char kDigits[] = "0123456789abcdef";
  unsigned char bytes[16];
  if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(DrawNumber() >> 4);
  }
  String digits;
  for (unsigned char byte : bytes) {
    digits.cat(kDigits[byte >> 4]);
    digits.cat(kDigits[byte & 15]);
  }
  return digits;
}

// `Sat, 21 Nov 2026 23:47:18 +0000`, in English whatever the locale.
String MailDate(time_t date) {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  tm fields{};
  tzset();
  localtime_r(&date, &fields);
  char day[16];
  char time[32];
  const size_t day_length = strftime(day, sizeof day, "%d", &fields);
  const size_t time_length = strftime(time, sizeof time, "%Y %H:%M:%S %z", &fields);
  return String::Concat({kDays[fields.tm_wday],
                         ", ",
                         {day, day_length},
                         " ",
                         kMonths[fields.tm_mon],
                         " ",
                         {time, time_length}});
}

// Whether servers pass the text on as it stands.
bool IsPlainText(std::string_view text) {
  return LongestLine(text) <= kLongestLine && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= ' ' && c <= '~') || c == '\t' || c == '\r' || c == '\n';
         });
}

// The boundary between the parts of one multipart. Chance keeps it out of every part.
class Multipart {
 public:
  Multipart(String& out, std::string_view kind) : out_(out), boundary_("=_" + RandomDigits()) {
    AppendParameterHeader(out_, "Content-Type", kind, "boundary", boundary_);
  }
  void Next() { out_.Append(String::Concat({"\r\n--", boundary_, "\r\n"})); }
  void End() { out_.Append(String::Concat({"\r\n--", boundary_, "--\r\n"})); }

 private:
  String& out_;
  String boundary_;
};

// A part of text, with its headers. Of the two ways to write what is not plain the shorter is
// taken.
void AppendText(String& out, std::string_view type, std::string_view text) {
  const auto head = [&](std::string_view encoding) {
    out.Append(
        String::Concat({"Content-Type: ", type,
                        "; charset=utf-8\r\nContent-Transfer-Encoding: ", encoding, "\r\n\r\n"}));
  };
  if (IsPlainText(text)) {
    head("7bit");
    out.Append(text);
    return;
  }
  const String quoted = QuotedPrintable(text);
  if (quoted.size() <= Base64Size(text.size())) {
    head("quoted-printable");
    out.Append(quoted);
    return;
  }
  head("base64");
  AppendBase64(out, text, kBase64Line);
}

void AppendBody(String& out, const Mail& mail) {
  if (mail.html.empty()) {
    AppendText(out, "text/plain", mail.text);
    return;
  }
  Multipart alternative(out, "multipart/alternative");
  alternative.Next();
  AppendText(out, "text/plain", mail.text);
  alternative.Next();
  AppendText(out, "text/html", mail.html);
  alternative.End();
}

// What a type may be, so that the mail stays whole: `type/subtype` with parameters on one line. A
// message or multipart must not be base64, as files here are.
bool IsFileType(std::string_view type) {
  const auto shown = [](char c) { return c >= ' ' && c <= '~'; };
  const size_t slash = type.find('/');
  return slash != std::string_view::npos && slash > 0 && slash + 1 < type.size() &&
         type.size() <= 200 && std::all_of(type.begin(), type.end(), shown) &&
         !EqualsIgnoreCase(type.substr(0, slash), "message") &&
         !EqualsIgnoreCase(type.substr(0, slash), "multipart");
}

void AppendAttachment(String& out, const MailAttachment& attachment) {
  const bool usable = IsFileType(attachment.type);
  out.Append(String::Concat(
      {"Content-Type: ",
       usable ? attachment.type.view() : std::string_view("application/octet-stream"),
       "\r\nContent-Transfer-Encoding: base64\r\n"}));
  AppendParameterHeader(out, "Content-Disposition", "attachment", "filename",
                        ToUtf8(attachment.name));
  out.Append("\r\n");
  AppendBase64(out, attachment.content, kBase64Line);
}

MailAddress WithUtf8Name(const MailAddress& address) {
  return {ToUtf8(address.name), address.address};
}

void AppendAddresses(String& out, std::string_view name, std::span<const MailAddress> addresses) {
  if (addresses.empty()) return;
  std::vector<MailAddress> shown(addresses.size());
  std::transform(addresses.begin(), addresses.end(), shown.begin(), WithUtf8Name);
  AppendAddressHeader(out, name, shown);
}

}  // namespace

String MakeMessageID(std::string_view domain) {
  return String::Concat({"<", RandomDigits(), "@", domain, ">"});
}

int64_t AttachmentSize(int64_t bytes) {
  const int64_t digits = static_cast<int64_t>(Base64Size(static_cast<size_t>(bytes)));
  return digits + digits / static_cast<int64_t>(kBase64Line) * 2;
}

bool LooksLikeHtml(std::string_view text) {
  text = Stripped(text);
  for (std::string_view start : {"<!DOCTYPE", "<HTML"}) {
    if (EqualsIgnoreCase(text.substr(0, start.size()), start)) return true;
  }
  return false;
}

String BuildMail(const Mail& mail) {
  String out;
  int64_t size = 4096 + static_cast<int64_t>(mail.text.size() + mail.html.size()) * 2;
  for (const MailAttachment& attachment : mail.attachments) {
    size += AttachmentSize(static_cast<int64_t>(attachment.content.size()));
  }
  out.Reserve(static_cast<size_t>(size));
  out.Append(String::Concat({"Date: ", MailDate(mail.date), "\r\nMessage-ID: ", mail.id, "\r\n"}));
  AppendAddresses(out, "From", {&mail.from, 1});
  AppendAddresses(out, "To", mail.to);
  AppendAddresses(out, "Cc", mail.cc);
  AppendAddresses(out, "Reply-To", mail.reply_to);
  AppendTextHeader(out, "Subject", ToUtf8(mail.subject));
  for (const MailHeader& header : mail.headers) {
    AppendTextHeader(out, header.name, ToUtf8(header.value));
  }
  out.Append("MIME-Version: 1.0\r\n");
  if (mail.attachments.empty()) {
    AppendBody(out, mail);
    return out;
  }
  Multipart mixed(out, "multipart/mixed");
  mixed.Next();
  AppendBody(out, mail);
  for (const MailAttachment& attachment : mail.attachments) {
    mixed.Next();
    AppendAttachment(out, attachment);
  }
  mixed.End();
  return out;
}

}  // namespace vexa
