// The few attributes that are not simply evaluated.

#include "tags/attribute_forms.h"

#include "core/text.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

constexpr std::string_view kStop = "STOP";

bool IsExpressionAttribute(int tag, std::string_view name) {
  switch (tag) {
    case kTagVxIF:
    case kTagVxEVAL:
    case kTagVxWHILE:
      return true;
    case kTagVxMAKEINDEX:
      return EqualsIgnoreCase(name, "EXPR") || EqualsIgnoreCase(name, "EXPRESSION");
    case kTagVxFILTER:
    case kTagVxIMPORT:
    case kTagIMPORT:
      return EqualsIgnoreCase(name, "FILTER");
    case kTagVxDO:
      return EqualsIgnoreCase(name, "VALUE");
    default:
      return false;
  }
}

}  // namespace

ValueForm AttributeForm(int tag, std::string_view name) {
  if (!IsExpressionAttribute(tag, name)) return ValueForm::Attribute;
  // An empty filter takes the filter away.
  return tag == kTagVxFILTER ? ValueForm::OptionalExpression : ValueForm::ExpressionAttribute;
}

bool IsKeptAsText(int tag, std::string_view name) {
  bool evaluates_itself = tag == kTagVxMAKEINDEX || tag == kTagVxFILTER || tag == kTagVxDO;
  return evaluates_itself && IsExpressionAttribute(tag, name);
}

bool IsDeferred(int tag, std::string_view name) {
  if (tag == kTagVxWHILE) return true;
  return (tag == kTagVxIMPORT || tag == kTagIMPORT) && IsExpressionAttribute(tag, name);
}

bool IsRawOrder(int tag, std::string_view name) {
  return (tag == kTagIMPORT || tag == kTagEXPORT) && IsLeadingPart(name, "ORDER");
}

bool IsStopBody(int tag, std::string_view body) {
  // Any leading part of the word stops a WHILE, the empty body too.
  if (tag == kTagWHILE) return IsLeadingPart(Stripped(body), kStop);
  return tag == kTagIMPORT && EqualsIgnoreCase(Stripped(body), kStop);
}

}  // namespace vexa
