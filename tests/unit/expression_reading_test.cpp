// Reading of expressions: the tree that comes out, printed back, where values end, and messages.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "expr/character_source.h"
#include "expr/expression.h"
#include "fake_expression_context.h"
#include "rows.h"

namespace vexa {

namespace {

class ExpressionReadingTest : public testing::Test {
 protected:
  void ExpectTrees(std::string_view rows) {
    for (const auto& [text, tree] : Rows(rows)) EXPECT_EQ(context_.Tree(text), tree) << text;
  }
  // Reads values as from a script. What comes out is the tree or the error, how the value ended,
  // and what was left unread.
  void ExpectFromScript(ValueForm form, std::string_view rows) {
    for (const auto& [script, expected] : Rows(rows)) {
      context_.errors.clear();
      TextSource source(script);
      ExpressionTree tree, quoted;
      ValueEnd end;
      ExpressionTree* read = Expression::ReadTree(source, form, context_, tree, quoted, end);
      std::string told = context_.ErrorText();
      if (read != nullptr) {
        told = read->Printed().view();
        told += end == ValueEnd::TagEnd ? " TAGEND:" : " MORE:";
        told += script.substr(static_cast<size_t>(source.Place().position));
      }
      EXPECT_EQ(told, expected) << script;
    }
  }

  FakeExpressionContext context_;
};

TEST_F(ExpressionReadingTest, GroupsByPrecedenceAndClimbsASingleLevel) {
  ExpectTrees(R"rows(
    a - b - c => ((a - b) - c) ;; 1 + 2 * 3 => (1 + (2 * 3)) ;; 1 * 2 + 3 => ((1 * 2) + 3)
    (1 + 2) * 3 => ((1 + 2) * 3) ;; 3 * (1 + 2) => (3 * (1 + 2))
    ((a)) + ((b * c)) => (a + (b * c)) ;; (a * b + c) * d => (((a * b) + c) * d)
    (a * b + c * d + e) => (((a * b) + (c * d)) + e)
    a + (b - (c * d - e)) - f => ((a + (b - ((c * d) - e))) - f)
    a AND b OR c => ((a AND b) OR c) ;; a EQ b AND c NE d => ((a EQ b) AND (c NE d))
    a $ b EQ c + d => ((a $ b) EQ (c + d)) ;; a POW b * c POW d => ((a POW b) * (c POW d))
    a EQ b FMT c SUBSTR d => (a EQ ((b FMT c) SUBSTR d))
    a MOD b ROUND c / d => ((a MOD (b ROUND c)) / d)
    a AND b + c * d OR e => (a AND ((b + (c * d)) OR e))
    a EQ b + c * d AND e => (a EQ ((b + (c * d)) AND e))
    a AND b * c EQ d => (a AND ((b * c) EQ d)) ;; a + b * c - d => ((a + (b * c)) - d)
    a AND b EQ c + d * e FMT f LT g => (a AND (b EQ (c + ((d * (e FMT f)) LT g)))))rows");
}

TEST_F(ExpressionReadingTest, PutsPrefixOperatorsWhereTheRulesSay) {
  ExpectTrees(R"rows(
    NOT a => (NOT a) ;; not(a) => (NOT a) ;; NOT a AND b => ((NOT a) AND b)
    a AND NOT b OR c => ((a AND (NOT b)) OR c) ;; a + NOT b AND c => ((a + (NOT b)) AND c)
    a EQ BITOC b => (a EQ (BITOC b)) ;; NOT NOT a => (NOT (NOT _), a)
    a + BITOC b => (BITOC (a + _), b) ;; a * BITOC b => (BITOC (a * _), b)
    BITOC a * b => (BITOC a, (b * _)) ;; BITOC a * (b) => (BITOC a, (b * _))
    (BITOC a) * b => ((BITOC a) * b) ;; BITOC a * b - c => ((BITOC a, (b * _)) - c)
    BITOC NOT a => (BITOC _, (NOT a)) ;; NOT BITOC a => (BITOC (NOT _), a)
    NOT (NOT a) => (NOT (NOT a)))rows");
}

TEST_F(ExpressionReadingTest, TellsTokensApart) {
  ExpectTrees(R"rows(
    12abc => 12abc ;; .5+. => (.5 + .) ;; -5 => -5 ;; -.5 => -.5 ;; a-5 => (a - 5)
    a - -5 => (a - -5) ;; a--5 => (a - -5) ;; 2*-3 => (2 * -3) ;; 1e5 => 1e5 ;; 1e-5 => (1e - 5)
    1.5a.b => ERROR: Expected operator, found '.b' ;; l.x$g.y => (l.x $ g.y) ;; a>b => a>b
    x=y&z => x=y&z ;; andy OR orson => (andy OR orson) ;; a and b oR c => ((a AND b) OR c)
    a EQ"b" => (a EQ 'b') ;;  \t\r\n a \n => a ;; 'a'$'b' => ('a' $ 'b')
    'say "hi"'$"it's" => ('say "hi"' $ 'it's') ;; f(a) => f(a) ;; f() => f() ;; f( ) => f()
    f(a, b * c,'d') => f(a, (b * c), 'd') ;; f((a), (b + c) * d) => f(a, ((b + c) * d))
    f(g(a, h()), NOT b) + c => (f(g(a, h()), (NOT b)) + c)
    a * f(b + c) + d => ((a * f((b + c))) + d) ;; and.b(c) => and.b(c)
    => ERROR: Unexpected end of expression ;; \n => ERROR: Unexpected end of expression
    'abc => ERROR: Found end of file in quoted string ;; 'a' 'b => ERROR: Found end of file in quoted string)rows");
}

TEST_F(ExpressionReadingTest, DecodesEntitiesOfTexts) {
  EXPECT_EQ(context_.Tree("'&#65;&#066;&#255;'"), "'AB\xff'");
  ExpectTrees(R"rows(
    '&quot;&AMP;&Lt;&gt;' => '"&<>'
    '&#0;&#256;&#99999999999999999999;&#;&#6a;' => '&#0;&#256;&#99999999999999999999;&#;&#6a;'
    '&nbsp;&;& x&amp' => '&nbsp;&;& x&amp' ;; '&amp;lt;' => '&lt;' ;; '&&amp;;' => '&&;'
    '&#39;' => ''')rows");
}

TEST_F(ExpressionReadingTest, EndsAttributesAtWhiteSpaceThatNoOperatorFollows) {
  ExpectFromScript(ValueForm::Attribute, R"rows(
    a>rest => a TAGEND:rest ;; a > => a MORE: > ;; "x"\n\tNAME=b> => 'x' MORE:\n\tNAME=b>
    i + 1> => (i + 1) TAGEND: ;; i +1 b> => (i + 1) MORE: b> ;; i -1> => (i - 1) TAGEND:
    a EQ b NAME=c> => (a EQ b) MORE: NAME=c> ;; NOT done> => (NOT done) TAGEND:
    "row" $ i IN=c> => ('row' $ i) MORE: IN=c> ;; a fmt=b> => a MORE: fmt=b>
    a $=b> => a MORE: $=b> ;; a FMT = b> => (a FMT =) MORE: b> ;; a FMTX> => a MORE: FMTX>
    a substr b> => (a SUBSTR b) TAGEND: ;; a SUBSTRING b> => a MORE: SUBSTRING b>
    a AND(b)> => (a AND b) TAGEND: ;; a OR'b'> => (a OR 'b') TAGEND:
    a EQ> => ERROR: Unexpected end of expression ;; a ,b> => a MORE: ,b> ;; a "b"> => a MORE: "b">
    (a\n+ b) c> => (a + b) MORE: c> ;; f( a , b ) c> => f(a, b) MORE: c> ;; a\n => a MORE:\n
    "a > b"> => 'a > b' TAGEND: ;; "i LT 10"> => 'i LT 10' TAGEND:
    a | b> => ERROR: Expected operator, found '|'
    a NOT b> => ERROR: Expected operator, found 'NOT' ;; > => ERROR: Unexpected end of expression
    \t> => ERROR: Unexpected end of expression ;; (a>b) => ERROR: Mismatched parenthesis
    f(a, > => ERROR: Mismatched parenthesis ;; a => ERROR: Unexpected end of file
    (a => ERROR: Unexpected end of file ;; a + => ERROR: Unexpected end of file
     => ERROR: Unexpected end of file ;; "a> => ERROR: Found end of file in quoted string
    "a"b> => ERROR: Expected operator, found 'b' ;; "a"NAME="b"> => ERROR: Unexpected &quot;)rows");
}

TEST_F(ExpressionReadingTest, ReadsALoneQuotedExpressionAgain) {
  ExpectFromScript(ValueForm::ExpressionAttribute, R"rows(
    "i LT 10"> => (i LT 10) TAGEND:
    "i &lt; &quot;b&quot;" X=1> => ERROR: Expected operator, found '<'
    "a EQ &quot;b > c&quot;" X=1> => (a EQ 'b > c') MORE: X=1> ;; "a>b"> => a>b TAGEND:
    "'text'"> => 'text' TAGEND: ;; "&quot;a EQ b&quot;"> => 'a EQ b' TAGEND:
    'i LT 10'> => 'i LT 10' TAGEND: ;; ("i LT 10")> => 'i LT 10' TAGEND:
    "a b" $ c> => ('a b' $ c) TAGEND: ;; f("a b")> => f('a b') TAGEND:
    ""> => ERROR: Unexpected end of expression ;; "(a"> => ERROR: Mismatched parenthesis
    "'a"> => ERROR: Found end of file in quoted string ;; a EQ b> => (a EQ b) TAGEND:)rows");
}

TEST_F(ExpressionReadingTest, EndsBodiesAtTheTagOnly) {
  ExpectFromScript(ValueForm::Body, R"rows(
     a\n EQ  b >rest => (a EQ b) TAGEND:rest ;; \t"a EQ b" > => (a EQ b) TAGEND:
    a > => a TAGEND: ;; a b> => ERROR: Expected operator, found 'b'
    \t> => ERROR: Unexpected end of expression ;; "a" "b"> => ERROR: Expected operator, found '"b"'
    a +  => ERROR: Unexpected end of file)rows");
}

TEST_F(ExpressionReadingTest, ReplacesWhatItHeld) {
  Expression expression;
  ASSERT_TRUE(expression.ReadText("a + b", context_));
  ASSERT_TRUE(expression.ReadText("'c'", context_));
  EXPECT_EQ(expression.program().constant()->view(), "c");
  EXPECT_FALSE(expression.ReadText("c +", context_));
  EXPECT_TRUE(expression.empty());
  EXPECT_EQ(context_.errors.size(), 1U);
}

}  // namespace

}  // namespace vexa
