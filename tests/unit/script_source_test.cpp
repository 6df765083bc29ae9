// A script means the same however its file falls into blocks.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/module.h"
#include "file_fixture.h"
#include "tags/tag_table.h"

namespace vexa {

namespace {

// Together they use every way of reading: text runs, comments, attributes over lines, bodies,
// skips, loops, calls ahead, macros and their places.
const std::string kScripts[] = {
    "a\r\nb\rc\n\\<x>\\\\<!-- <VxEVAL EXPR=1> -- >-->d< p class=\"a>b\"\n>&amp;&am&[v]&amp;[v];;\n"
    "<## x ##><##>e<VxCOMMENT></VxCOMMEN</VxCOMMENT>f<VxEVAL\n EXPR\n =\n 1 +\n 2\n>g&[v:ent]",
    "<VxLET i=0><VxWHILE EXPR=\"i LT 3\">[&[i]<VxIF EXPR=\"i EQ 1\">one<VxIF EXPR=1>x</VxIF>"
    "<VxELSE>other<VxIF EXPR=0>y<VxELSE>z</VxIF></VxIF>]<VxLET i=i + 1></VxWHILE>\n"
    "<WHILE i GT 0><LET i=i - 1><IF i EQ 1><WHILE STOP></IF>&[i],</WHILE>\n<EVAL 1/0>",
    "<VxEVAL EXPR=f('a', g('b'))>\n<VxFUNCTION NAME=\"f\" PARAMETERS=\"x, y\">(&[x]&[y])\n"
    "<VxFUNCRETURN VALUE=x $ y></VxFUNCTION><VxFUNCTION NAME=\"g\" PARAMETERS=\"z\">{&[z]}"
    "<VxWHILE EXPR=1><VxFUNCRETURN VALUE='G'></VxWHILE></VxFUNCTION><VxEVAL EXPR=g(1)>\n",
    "<VxASSIGN NAME=\"o\" VALUE=\"<VxWHILE EXPR=n LT 2>\nin\"><VxASSIGN NAME=\"t\" VALUE=\"<VxLET "
    "n=n + 1>\"><VxASSIGN NAME=\"c\" VALUE=\"</VxWHILE>\n\">&[o]:&[t]:&[c]&[o]never&[c]\n</VxIF>",
    "<VEXA STANDARDOUTPUTLEVEL=\"html,text,compress\">  a  b \t\n\n <p>  c<VxHIDE FIELDS=\"v,w\">  "
    "d"
    "<HIDE v, w><VEXA INTERPRET=\"tags\">&[v]&amp;[v]<VxSMTP FROM=1 TO=2 MAILHOST=3>e</VxSMTP>",
};

class ScriptSourceTest : public FileFixture {
 protected:
  // The page and the errors that `script` comes to when its file is read in blocks of `size`.
  std::string Run(const std::string& script, int size) {
    constexpr int64_t kMostPieces = 3000;
    FakeHost script_host;
    UNIXFileManager manager(script_host);
    Variables variables(script_host);
    script_host.files = &manager;
    script_host.variables = &variables;
    script_host.settings.templatebuffersize = size;
    script_host.polls_left = kMostPieces;
    (void)variables.SetVariable("v", "<b>");
    Module module(script_host, kVexaTags);
    script_host.SetCurrentModule(&module);
    String message;
    EXPECT_EQ(module.Open(Make("script", script), "script", message), 1) << message.view();
    int result = module.scriptparser().Parse();
    script_host.page.Flush();
    std::string all(script_host.page.data().view());
    for (const std::string& error : script_host.errors) all += "\n!" + error;
    return all + "\n=" + std::to_string(result);
  }
};

TEST_F(ScriptSourceTest, BlocksMayEndAnywhere) {
  for (const std::string& script : kScripts) {
    std::string whole = Run(script, 8192);
    EXPECT_EQ(whole.find("timed out"), std::string::npos) << whole;
    for (int size = 1; size <= 70; ++size) {
      ASSERT_EQ(Run(script, size), whole) << "block size " << size;
    }
  }
}

}  // namespace

}  // namespace vexa
