#include "escape.h"

#include <algorithm>

namespace cli {
namespace {

void AppendHex(unsigned char ch, std::string* psOut) {
  static const char kDigits[] = "0123456789abcdef";
  psOut->append("\\x");
  psOut->push_back(kDigits[ch >> 4]);
  psOut->push_back(kDigits[ch & 0xF]);
}

bool IsContinuation(unsigned char ch) { return (ch & 0xC0) == 0x80; }

// The length of the valid UTF-8 sequence that starts at p (n bytes available): 0 when the bytes
// can never start one, -1 when they may, but more bytes are needed to tell.
int SequenceLength(const unsigned char* p, std::size_t n) {
  const unsigned char lead = p[0];
  int nLength = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    nLength = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    nLength = 3;
    if (lead == 0xE0) lo = 0xA0;
    if (lead == 0xED) hi = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    nLength = 4;
    if (lead == 0xF0) lo = 0x90;
    if (lead == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  for (int i = 1; i < nLength; ++i) {
    if (static_cast<std::size_t>(i) >= n) return -1;
    const bool bValid = i == 1 ? p[i] >= lo && p[i] <= hi : IsContinuation(p[i]);
    if (!bValid) return 0;
  }
  // U+0080..U+009F are C1 controls, which some terminals obey.
  if (lead == 0xC2 && p[1] < 0xA0) return 0;
  return nLength;
}

// Escapes p[0..n); with bHold, an unfinished sequence at the end is left unconsumed. Returns
// the number of bytes consumed.
std::size_t EscapeInto(const unsigned char* p, std::size_t n, bool bKeepLayout, bool bHold, std::string* psOut) {
  std::size_t i = 0;
  while (i < n) {
    const unsigned char ch = p[i];
    if (ch < 0x80) {
      if (ch == '\\') psOut->append("\\\\");
      else if ((ch >= 0x20 && ch != 0x7F) || (bKeepLayout && (ch == '\n' || ch == '\t'))) psOut->push_back(static_cast<char>(ch));
      else AppendHex(ch, psOut);
      ++i;
      continue;
    }
    const int nLength = SequenceLength(p + i, n - i);
    if (nLength < 0 && bHold) break;
    if (nLength <= 0) {
      AppendHex(ch, psOut);
      ++i;
      continue;
    }
    psOut->append(reinterpret_cast<const char*>(p + i), static_cast<std::size_t>(nLength));
    i += static_cast<std::size_t>(nLength);
  }
  return i;
}

const unsigned char* Bytes(std::string_view s) { return reinterpret_cast<const unsigned char*>(s.data()); }

}  // namespace

std::string EscapeText(std::string_view sText) {
  std::string sOut;
  sOut.reserve(sText.size());
  EscapeInto(Bytes(sText), sText.size(), false, false, &sOut);
  return sOut;
}

void C_TextEscaper::Feed(std::string_view sPiece, std::string* psOut) {
  if (!m_sHeld.empty()) {
    // Complete the held sequence with the first bytes of this piece, at most three of them.
    const std::size_t nTaken = std::min<std::size_t>(sPiece.size(), 3);
    std::string sJoined = m_sHeld + std::string(sPiece.substr(0, nTaken));
    const std::size_t nDone = EscapeInto(Bytes(sJoined), sJoined.size(), m_bKeepLayout, true, psOut);
    if (nDone < m_sHeld.size()) {
      m_sHeld.assign(sJoined, nDone, std::string::npos);  // still unfinished: the piece was short
      return;
    }
    sPiece.remove_prefix(nDone - m_sHeld.size());
    m_sHeld.clear();
  }
  const std::size_t nDone = EscapeInto(Bytes(sPiece), sPiece.size(), m_bKeepLayout, true, psOut);
  m_sHeld.assign(sPiece.substr(nDone));
}

void C_TextEscaper::Finish(std::string* psOut) {
  EscapeInto(Bytes(m_sHeld), m_sHeld.size(), m_bKeepLayout, false, psOut);
  m_sHeld.clear();
}

}  // namespace cli
