// Form fields: taking pairs apart.

#include "request/form_fields.h"

#include "core/encoding.h"
#include "core/string.h"
#include "core/text.h"

namespace vexa {

void AddFormField(Variables& vars, std::string_view pair, FieldSpace space) {
  size_t equals = pair.find('=');
  std::string_view written_name = pair.substr(0, equals);
  std::string_view written_value = equals == pair.npos ? pair : pair.substr(equals + 1);
  if (space == FieldSpace::Stripped) {
    written_name = Stripped(written_name);
    written_value = Stripped(written_value);
  }
  String name(written_name), value(written_value);
  DecodeAttribute(name);
  DecodeAttribute(value);
  vars.AddFormVariable(name, value);
}

void AddQueryFields(Variables& vars, std::string_view query) {
  String text(query);
  text.gsub("\\", "");
  for (PieceReader pieces(text, "&"); pieces.Next();) {
    AddFormField(vars, pieces.piece(), FieldSpace::Stripped);
  }
}

}  // namespace vexa
