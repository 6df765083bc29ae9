// Settings: every value of the configuration file with its default. The configuration reader fills
// it; everybody else only reads. Each field is named as its key in the file. Times are in seconds,
// buffer sizes in bytes; 0 means "no limit" or "off" where the comment says nothing else.

#ifndef VEXA_CORE_SETTINGS_H_
#define VEXA_CORE_SETTINGS_H_

#include <cstdint>

#include "core/string.h"

namespace vexa {

// Bits of `securityoptions`. The first two of each path type say which links its paths may pass.
enum SecurityOption : int {
  kScriptLinks = 0x001,
  kScriptLinksToOthers = 0x002,
  kDataLinks = 0x004,
  kDataLinksToOthers = 0x008,
  kAbsoluteDataPaths = 0x010,
  kAbsoluteScriptPaths = 0x020,
  kTemporaryLinks = 0x100,
  kTemporaryLinksToOthers = 0x200,
};

// What `showerrors` says.
enum class ShownErrors : int {
  Page,   // messages stand on the page
  Brief,  // a reference stands in their place
};

struct Settings {
  String quorbelroot;  // the script root directory, also written vexaroot and teskroot
  String userdir = "public_zdx";
  String usersitevars = "sitevars";
  String authfile;
  String authuserdir;
  String stdmodedatadir;
  String quorbeldefault = "index.vx";  // also written vexadefault and teskdefault
  String sitevars;
  String commercedir;
  String path;
  String tempdir;
  int loglevel = 0;
  int securityoptions = 0;  // SecurityOption bits
  String workdir;
  String logfile;
  int globaltimeout = 90;
  int mailtimeout = 30;
  int calltimeout = 30;
  int callmaxsize = 16777216;  // bytes of an answer
  int mailmaxsize = 33554432;  // bytes of a mail
  String callallow;            // which local addresses may be called all the same
  String cafile;               // the authorities that certificates are checked against
  String serveradmin = "webmaster@localhost";
  int usecookies = 1;
  int sendstatus = 0;  // 1: answers of errors have a status
  int showerrors = 0;  // a ShownErrors
  int nice = 0;
  int maxcpu = 0;
  int maxdata = 0;
  int maxstack = 0;
  int maxfunctiondepth = 23;
  int importbuffersize = 8192;
  int templatebuffersize = 8192;
  int callbuffersize = 8192;
  int smtpbuffersize = 8192;
  int contentbuffersize = 8192;
  int outputbuffersize = 8192;
  String virtualhostvariable = "SERVER_NAME";
  int dnslookup = 1;
  int redirectonly = 0;
  int serveruserid = -1;  // -1: any
  String validextensions;
  String packages;
  int maxfiles = 0;
  int lockexpiration = 90;
  int durable = 0;  // 1: changes of tables wait for the disk
  String lockhostname;
  // Of a request, each without a limit when 0 or less: bytes of its body, and of one uploaded file;
  // fields and files in query and body together.
  int64_t maxbody = 67108864;
  int64_t maxupload = 0;
  int64_t maxfields = 10000;
  int64_t maxmemory = 0;         // bytes that a page may take; 0 or less: no limit
  int strictinput = 0;           // 1: a request that is damaged is refused
  int sessiontime = 43200;       // how long a session lives unused; 0 or less: no limit
  String postgresql;             // what connection texts of databases leave open
  String sitekey;                // the file of the key that tokens are made with
  int defaultmacroencoding = 0;  // a MacroEncoding: that of references before a page sets its own
};

}  // namespace vexa

#endif  // VEXA_CORE_SETTINGS_H_
