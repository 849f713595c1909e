// Reading and writing application/x-www-form-urlencoded text, which carries
// every request body and redirect query of the protocol.
#ifndef VELMOR_TOOLS_DEVSERVER_FORM_CODEC_H_
#define VELMOR_TOOLS_DEVSERVER_FORM_CODEC_H_

#include <optional>
#include <string>
#include <string_view>

#include "devserver/FormFields.h"

namespace velmor::devserver {

// Stateless; safe on any thread.
class FormCodec final {
 public:
  FormCodec() = delete;

  // Splits on "&", then on the first "="; "+" is a space and "%XX" a byte.
  // Empty pieces are skipped and a piece without "=" has an empty value.
  // Nothing when an escape is not two hexadecimal digits or the result is
  // not UTF-8, so that garbage never reaches the grant logic.
  static std::optional<FormFields> parse(std::string_view text);
  // Percent-encodes every byte except the unreserved characters of URIs
  // (letters, digits, "-", ".", "_", "~").
  static std::string encode(std::string_view text);
  // "name=value&..." with both sides encoded.
  static std::string encodeFields(const FormFields& fields);
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_FORM_CODEC_H_
