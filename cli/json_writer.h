// C_JsonWriter: the one writer of the tool's JSON documents (schema "kofd/1", docs/schema/).
//
// A document is written as it is made, never held whole: values go into a block that is written
// out when full and at Finish. Commas, nesting and escaping are the writer's; the commands only
// say which keys and values come in which order.
//
//   numbers   written with std::to_chars, always as JSON numbers
//   strings   bytes of valid UTF-8 as they are; quote, backslash, C0 and C1 controls escaped;
//             a byte that is no part of valid UTF-8 as \u00XX (its Latin-1 reading). Name()
//             then adds KEY_hex with the exact bytes, so no byte is lost.
//   named     an enumerated field: {"value": 2, "name": "Symtab"}
//   lines     in JSON Lines mode each top-level value ends with a line feed
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

class C_JsonWriter {
 public:
  explicit C_JsonWriter(std::FILE* pOut, bool bLines = false);
  C_JsonWriter(const C_JsonWriter&) = delete;
  C_JsonWriter& operator=(const C_JsonWriter&) = delete;

  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  // A key of the object being written; keys are the tool's own ASCII words.
  C_JsonWriter& Key(std::string_view sKey);

  void Number(std::uint64_t qwValue);
  void SignedNumber(std::int64_t llValue);
  void Bool(bool bValue);
  void Null();
  // Returns false when some byte was no part of valid UTF-8 (written as \u00XX).
  bool String(std::string_view sBytes);
  // Bytes as lowercase hexadecimal digits, two a byte, in one string.
  void Hex(const void* pData, std::size_t nSize);
  // {"value": qwValue, "name": pszName}
  void Named(std::uint64_t qwValue, std::string_view sName);
  // KEY: the bytes as a string, and KEY_hex: their hexadecimal when they are not valid UTF-8.
  void Name(std::string_view sKey, std::string_view sBytes);

  // Writes what is gathered and checks the stream; false when any write failed.
  bool Finish();
  bool Lines() const { return m_bLines; }
  // True once any byte has reached the stream.
  bool Started() const { return m_bStarted; }

  // The document's opening: {"schema": "kofd/1", "command": COMMAND, left open for more keys.
  void BeginDocument(std::string_view sCommand);

 private:
  void Z_Separate();   // the comma (or nothing) before a value or key
  void Z_Closed();     // after a value: a line feed when a top-level value ended in lines mode
  void Z_Put(std::string_view sText);
  void Z_Put(char ch) {
    if (m_vBlock.size() == m_vBlock.capacity()) Z_Drain();
    m_vBlock.push_back(ch);
  }
  void Z_Drain();

  std::FILE* m_pOut;
  bool m_bLines;
  bool m_bStarted = false;
  bool m_bFailed = false;
  bool m_bAfterKey = false;
  // One entry a nesting level: whether a value has been written at that level.
  std::vector<bool> m_vHasValue;
  std::vector<char> m_vBlock;
};

}  // namespace cli
