#include "json_parser/KeyValuePairs.h"

namespace json_parser {

KeyValuePair KeyValuePairs::operator[](std::size_t index) const noexcept {
  const Place& place = (*places)[index];
  const char* const document = text->data();
  return {{document + place.keyBegin, place.keyLength},
          {document + place.valueBegin, place.valueLength}};
}

}  // namespace json_parser
