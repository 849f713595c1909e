#include "velmor/Base64.h"

#include <array>
#include <cstdint>

namespace velmor {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// Classification of every byte: 0-63 an alphabet symbol, or one of these.
constexpr std::int16_t kSkip = -1;
constexpr std::int16_t kInvalid = -2;

constexpr std::array<std::int16_t, 256> makeDecodeTable() {
  std::array<std::int16_t, 256> table{};
  table.fill(kInvalid);
  for (std::int16_t value = 0; value < 64; ++value) {
    table[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  for (const unsigned char space : {'\t', '\n', '\f', '\r', ' '}) table[space] = kSkip;
  return table;
}

constexpr std::array<std::int16_t, 256> kDecodeTable = makeDecodeTable();

std::optional<std::string> encode(const std::uint8_t* bytes, std::size_t length) {
  if (length == 0) return std::nullopt;
  std::string text(4 * ((length + 2) / 3), kPad);
  char* out = text.data();
  std::size_t in = 0;
  for (; in + 3 <= length; in += 3, out += 4) {
    const std::uint32_t group =
        (std::uint32_t{bytes[in]} << 16) | (std::uint32_t{bytes[in + 1]} << 8) | bytes[in + 2];
    out[0] = kAlphabet[group >> 18];
    out[1] = kAlphabet[(group >> 12) & 63];
    out[2] = kAlphabet[(group >> 6) & 63];
    out[3] = kAlphabet[group & 63];
  }
  // The text was filled with padding, so a short last group leaves its "="s.
  if (in < length) {
    const bool two = in + 1 < length;
    const std::uint32_t group =
        (std::uint32_t{bytes[in]} << 16) | (two ? std::uint32_t{bytes[in + 1]} << 8 : 0);
    out[0] = kAlphabet[group >> 18];
    out[1] = kAlphabet[(group >> 12) & 63];
    if (two) out[2] = kAlphabet[(group >> 6) & 63];
  }
  return text;
}

// Decodes whole groups of four symbols while there are any, the common case
// by far; stops at the first byte that needs the careful walk.
void decodeGroups(const unsigned char* text, std::size_t length, std::size_t& position,
                  std::uint8_t* out, std::size_t& produced) {
  while (position + 4 <= length) {
    const std::int32_t a = kDecodeTable[text[position]];
    const std::int32_t b = kDecodeTable[text[position + 1]];
    const std::int32_t c = kDecodeTable[text[position + 2]];
    const std::int32_t d = kDecodeTable[text[position + 3]];
    if ((a | b | c | d) < 0) return;
    const std::uint32_t group = static_cast<std::uint32_t>((a << 18) | (b << 12) | (c << 6) | d);
    out[produced] = static_cast<std::uint8_t>(group >> 16);
    out[produced + 1] = static_cast<std::uint8_t>(group >> 8);
    out[produced + 2] = static_cast<std::uint8_t>(group);
    produced += 3;
    position += 4;
  }
}

// Places one symbol by its position in its group of four.
void placeSymbol(std::uint8_t value, std::size_t symbolCount, std::uint8_t* out,
                 std::size_t& produced) {
  switch (symbolCount % 4) {
    case 0:
      out[produced] = static_cast<std::uint8_t>(value << 2);
      break;
    case 1:
      out[produced++] |= value >> 4;
      out[produced] = static_cast<std::uint8_t>((value & 15) << 4);
      break;
    case 2:
      out[produced++] |= value >> 2;
      out[produced] = static_cast<std::uint8_t>((value & 3) << 6);
      break;
    default:
      out[produced++] |= value;
      break;
  }
}

}  // namespace

std::optional<std::string> Base64::encodeBase64WithString(std::string_view text) {
  return encode(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::optional<std::string> Base64::encodeBase64WithData(const Data& data) {
  return encode(data.data(), data.size());
}

std::optional<Data> Base64::decodeBase64WithString(std::string_view text) {
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t length = text.size();
  // Each symbol carries 6 bits; a started byte may sit one past the end.
  Data out(length / 4 * 3 + 3);
  std::size_t position = 0;
  std::size_t symbolCount = 0;
  std::size_t produced = 0;
  while (position < length) {
    if (symbolCount % 4 == 0) {
      const std::size_t start = position;
      decodeGroups(in, length, position, out.data(), produced);
      symbolCount += position - start;
      if (position == length) break;
    }
    const unsigned char ch = in[position++];
    if (ch == '\0') break;
    if (ch == kPad) {
      // A lone "=" after a group's first symbol can only be damage: that
      // symbol's 6 bits cannot make a byte.
      const bool padFollows = position < length && in[position] == kPad;
      if (!padFollows && symbolCount % 4 == 1) return std::nullopt;
      continue;
    }
    const std::int16_t value = kDecodeTable[ch];
    if (value == kSkip) continue;
    if (value == kInvalid) return std::nullopt;
    placeSymbol(static_cast<std::uint8_t>(value), symbolCount++, out.data(), produced);
  }
  out.resize(produced);
  return out;
}

}  // namespace velmor
