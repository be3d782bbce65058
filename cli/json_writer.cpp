#include "json_writer.h"

#include <charconv>

namespace cli {
namespace {

constexpr std::size_t kBlock = 1u << 20;
constexpr char kHexDigits[] = "0123456789abcdef";

// The length of the valid UTF-8 sequence at p (at most pEnd), or 0 when none starts there:
// overlong forms, surrogates and code points past U+10FFFF are no valid sequences.
std::size_t Utf8Length(const unsigned char* p, const unsigned char* pEnd) {
  const unsigned char b = p[0];
  std::size_t n = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // the second byte's range
  if (b >= 0xC2 && b <= 0xDF) n = 2;
  else if (b == 0xE0) n = 3, lo = 0xA0;
  else if (b == 0xED) n = 3, hi = 0x9F;
  else if (b >= 0xE1 && b <= 0xEF) n = 3;
  else if (b == 0xF0) n = 4, lo = 0x90;
  else if (b == 0xF4) n = 4, hi = 0x8F;
  else if (b >= 0xF1 && b <= 0xF3) n = 4;
  else return 0;
  if (static_cast<std::size_t>(pEnd - p) < n || p[1] < lo || p[1] > hi) return 0;
  for (std::size_t i = 2; i < n; ++i) {
    if (p[i] < 0x80 || p[i] > 0xBF) return 0;
  }
  return n;
}

}  // namespace

C_JsonWriter::C_JsonWriter(std::FILE* pOut, bool bLines) : m_pOut(pOut), m_bLines(bLines) { m_vBlock.reserve(kBlock); }

void C_JsonWriter::Z_Drain() {
  if (m_vBlock.empty()) return;
  if (!m_bFailed && std::fwrite(m_vBlock.data(), 1, m_vBlock.size(), m_pOut) != m_vBlock.size()) m_bFailed = true;
  m_bStarted = true;
  m_vBlock.clear();
}

void C_JsonWriter::Z_Put(std::string_view sText) {
  if (m_vBlock.capacity() - m_vBlock.size() < sText.size()) Z_Drain();
  if (sText.size() > m_vBlock.capacity()) {
    m_bStarted = true;
    if (!m_bFailed && std::fwrite(sText.data(), 1, sText.size(), m_pOut) != sText.size()) m_bFailed = true;
    return;
  }
  m_vBlock.insert(m_vBlock.end(), sText.begin(), sText.end());
}

void C_JsonWriter::Z_Separate() {
  if (m_bAfterKey) {
    m_bAfterKey = false;
    return;
  }
  if (m_vHasValue.empty()) return;
  if (m_vHasValue.back()) Z_Put(',');
  m_vHasValue.back() = true;
}

void C_JsonWriter::Z_Closed() {
  if (m_bLines && m_vHasValue.empty()) Z_Put('\n');
}

void C_JsonWriter::BeginObject() {
  Z_Separate();
  Z_Put('{');
  m_vHasValue.push_back(false);
}

void C_JsonWriter::EndObject() {
  m_vHasValue.pop_back();
  Z_Put('}');
  Z_Closed();
}

void C_JsonWriter::BeginArray() {
  Z_Separate();
  Z_Put('[');
  m_vHasValue.push_back(false);
}

void C_JsonWriter::EndArray() {
  m_vHasValue.pop_back();
  Z_Put(']');
  Z_Closed();
}

C_JsonWriter& C_JsonWriter::Key(std::string_view sKey) {
  Z_Separate();
  Z_Put('"');
  Z_Put(sKey);
  Z_Put("\":");
  m_bAfterKey = true;
  return *this;
}

void C_JsonWriter::Number(std::uint64_t qwValue) {
  Z_Separate();
  char szDigits[24];
  const auto result = std::to_chars(szDigits, szDigits + sizeof szDigits, qwValue);
  Z_Put(std::string_view(szDigits, static_cast<std::size_t>(result.ptr - szDigits)));
  Z_Closed();
}

void C_JsonWriter::SignedNumber(std::int64_t llValue) {
  Z_Separate();
  char szDigits[24];
  const auto result = std::to_chars(szDigits, szDigits + sizeof szDigits, llValue);
  Z_Put(std::string_view(szDigits, static_cast<std::size_t>(result.ptr - szDigits)));
  Z_Closed();
}

void C_JsonWriter::Bool(bool bValue) {
  Z_Separate();
  Z_Put(bValue ? "true" : "false");
  Z_Closed();
}

void C_JsonWriter::Null() {
  Z_Separate();
  Z_Put("null");
  Z_Closed();
}

bool C_JsonWriter::String(std::string_view sBytes) {
  Z_Separate();
  Z_Put('"');
  bool bValid = true;
  const auto* p = reinterpret_cast<const unsigned char*>(sBytes.data());
  const auto* pEnd = p + sBytes.size();
  const auto escape = [&](unsigned uCode) {
    const char szEscape[] = {'\\', 'u', '0', '0', kHexDigits[(uCode >> 4) & 0xF], kHexDigits[uCode & 0xF]};
    Z_Put(std::string_view(szEscape, sizeof szEscape));
  };
  while (p < pEnd) {
    const unsigned char b = *p;
    if (b >= 0x20 && b < 0x7F && b != '"' && b != '\\') {
      // The longest run that needs no escape goes in one piece.
      const auto* pRun = p;
      while (p < pEnd && *p >= 0x20 && *p < 0x7F && *p != '"' && *p != '\\') ++p;
      Z_Put(std::string_view(reinterpret_cast<const char*>(pRun), static_cast<std::size_t>(p - pRun)));
      continue;
    }
    if (b == '"' || b == '\\') {
      Z_Put('\\');
      Z_Put(static_cast<char>(b));
    } else if (b == '\n') {
      Z_Put("\\n");
    } else if (b == '\t') {
      Z_Put("\\t");
    } else if (b < 0x80) {
      escape(b);  // C0 controls and DEL
    } else if (const std::size_t n = Utf8Length(p, pEnd)) {
      // C1 controls are escaped like C0 ones; other characters stay as their bytes.
      if (b == 0xC2 && p[1] < 0xA0) escape(p[1]);
      else Z_Put(std::string_view(reinterpret_cast<const char*>(p), n));
      p += n;
      continue;
    } else {
      bValid = false;
      escape(b);
    }
    ++p;
  }
  Z_Put('"');
  Z_Closed();
  return bValid;
}

void C_JsonWriter::Hex(const void* pData, std::size_t nSize) {
  Z_Separate();
  Z_Put('"');
  const auto* p = static_cast<const unsigned char*>(pData);
  char szPair[2];
  for (std::size_t i = 0; i < nSize; ++i) {
    szPair[0] = kHexDigits[p[i] >> 4];
    szPair[1] = kHexDigits[p[i] & 0xF];
    Z_Put(std::string_view(szPair, 2));
  }
  Z_Put('"');
  Z_Closed();
}

void C_JsonWriter::Named(std::uint64_t qwValue, std::string_view sName) {
  BeginObject();
  Key("value").Number(qwValue);
  Key("name").String(sName);
  EndObject();
}

void C_JsonWriter::Name(std::string_view sKey, std::string_view sBytes) {
  if (Key(sKey).String(sBytes)) return;
  Key(std::string(sKey) + "_hex").Hex(sBytes.data(), sBytes.size());
}

void C_JsonWriter::BeginDocument(std::string_view sCommand) {
  BeginObject();
  Key("schema").String("kofd/1");
  Key("command").String(sCommand);
}

bool C_JsonWriter::Finish() {
  Z_Drain();
  if (std::fflush(m_pOut) != 0) m_bFailed = true;
  return !m_bFailed;
}

}  // namespace cli
