// Writes examples/sample.o: a small but realistic KELF object of the kind the toolchain emits
// for a blinking-LED program with a beep, used by the README and as a fuzzing seed; and the
// driver objects that examples/make_archive.sh puts beside it in examples/sample.a.
//
// Usage: kofd_make_sample OUTPUT
//        kofd_make_sample --library DIRECTORY     (writes uart.o, timer.o and music.o there)
#include <cstdio>
#include <initializer_list>
#include <string>

#include "kelf_writer.h"

using namespace kelf_test;

namespace {

// Deterministic stand-in for machine code: the same words on every run.
Bytes CodeWords(std::uint32_t count, std::uint32_t seed) {
  Bytes out;
  std::uint32_t x = seed;
  for (std::uint32_t i = 0; i < count; ++i) {
    x = x * 1664525u + 1013904223u;
    Append32(out, x);
  }
  return out;
}

Bytes SoundBytes(std::uint32_t count) {
  Bytes out;
  for (std::uint32_t i = 0; i < count; ++i) out.push_back(static_cast<std::uint8_t>(128 + ((i * 37) % 97) - 48));
  return out;
}

struct Function {
  const char* pszName;
  std::uint32_t dwSize;
};

// A driver object: its functions laid out one after another in .text, all global.
void WriteDriver(const std::string& sPath, std::uint32_t dwSeed, std::initializer_list<Function> functions) {
  std::uint32_t dwCode = 0;
  for (const Function& function : functions) dwCode += function.dwSize;
  ObjectBuilder object;
  object.Header().chip = 0x6E;
  object.Header().version = 2;
  const std::size_t text = object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, CodeWords(dwCode / 4, dwSeed), {}, {}, {}});
  StringTable names = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  Append(symbols, Sym(names.Add(".text"), 0, 0, kStbLocal, kSttSection, 0, static_cast<std::uint16_t>(text)));
  std::uint32_t dwAt = 0;
  for (const Function& function : functions) {
    Append(symbols, Sym(names.Add(function.pszName), dwAt, function.dwSize, kStbGlobal, kSttFunction, 0,
                        static_cast<std::uint16_t>(text)));
    dwAt += function.dwSize;
  }
  const std::size_t symstr = object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, static_cast<std::uint32_t>(symstr), 2, 4, 16, symbols, {}, {}, {}});
  object.WriteFile(sPath);
}

void WriteLibrary(const std::string& sDirectory) {
  WriteDriver(sDirectory + "/uart.o", 11, {{"uart_init", 0x30}, {"uart_putc", 0x20}, {"uart_getc", 0x24}});
  WriteDriver(sDirectory + "/timer.o", 23, {{"timer_start", 0x18}, {"timer_stop", 0x10}, {"tick_isr", 0x40}});
  WriteDriver(sDirectory + "/music.o", 37, {{"play_tune", 0x80}, {"stop_tune", 0x14}});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--library") {
    WriteLibrary(argv[2]);
    return 0;
  }
  if (argc != 2) {
    fprintf(stderr, "usage: kofd_make_sample OUTPUT | --library DIRECTORY\n");
    return 2;
  }
  ObjectBuilder object;
  object.Header().chip = 0x6E;
  object.Header().type = 1;
  object.Header().version = 2;
  object.Header().entry = 0x0040;

  const std::size_t text = object.AddSection({".text", kShtPrgbit, 6, 0x0000, 0, 0, 4, 0, CodeWords(320, 7), {}, {}, {}});
  const std::size_t data = object.AddSection({".data", kShtPrgbit, 3, 0x8000, 0, 0, 4, 0, CodeWords(32, 99), {}, {}, {}});

  StringTable names = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  Append(symbols, Sym(names.Add("blinky.c"), 0, 0, kStbLocal, kSttFile, 0, kShnAbs));
  Append(symbols, Sym(names.Add(".text"), 0, 0, kStbLocal, kSttSection, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add(".data"), 0, 0, kStbLocal, kSttSection, 0, static_cast<std::uint16_t>(data)));
  Append(symbols, Sym(names.Add("wait_loop"), 0x0120, 0x20, kStbLocal, kSttNoType, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add("led_state"), 0x0008, 4, kStbLocal, kSttObject, 0, static_cast<std::uint16_t>(data)));
  const std::uint32_t firstGlobal = static_cast<std::uint32_t>(symbols.size() / 16);
  Append(symbols, Sym(names.Add("main"), 0x0040, 0xA0, kStbGlobal, kSttFunction, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add("led_toggle"), 0x00E0, 0x40, kStbGlobal, kSttFunction, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add("delay_ms"), 0x0120, 0x60, kStbGlobal, kSttFunction, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add("beep"), 0x0180, 0x80, kStbGlobal, kSttFunction, 0, static_cast<std::uint16_t>(text)));
  Append(symbols, Sym(names.Add("tick_count"), 0x0000, 4, kStbGlobal, kSttObject, 0, static_cast<std::uint16_t>(data)));
  Append(symbols, Sym(names.Add("font_table"), 0x0000, 0x60, kStbGlobal, kSttShRom, 0, kShnAbs));
  Append(symbols, Sym(names.Add("IO_PORTA"), 0x00FF0010, 0, kStbGlobal, kSttNoType, 0, kShnAbs));
  Append(symbols, Sym(names.Add("uart_putc"), 0xFFFFFFFF, 0, kStbGlobal, kSttFunction, 0, kShnUndef));
  Append(symbols, Sym(names.Add("idle_hook"), 0x01F0, 0x10, kStbWeak, kSttFunction, 0, static_cast<std::uint16_t>(text)));
  const std::size_t symstr = object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  const std::size_t symtab = object.AddSection({".symtab", kShtSymtab, 0, 0, static_cast<std::uint32_t>(symstr), firstGlobal, 4, 16, symbols, {}, {}, {}});

  Bytes lines;
  const std::uint32_t lineTable[][2] = {{0x10, 12}, {0x12, 13}, {0x18, 15}, {0x20, 16}, {0x38, 21}, {0x40, 22}, {0x48, 30}, {0x60, 31}};
  for (const auto& l : lineTable) Append(lines, Line(l[0], l[1]));
  object.AddSection({".line", kShtLine, 0, 0, 0, static_cast<std::uint32_t>(text), 4, 8, lines, {}, {}, {}});

  StringTable files = StringTable::WithNul();
  const std::uint32_t blinky = files.Add("blinky.c");
  const std::uint32_t delay = files.Add("delay.c");
  const std::size_t filestr = object.AddSection({".filestrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, files.Data(), {}, {}, {}});
  const Bytes srclines = Join({SrcLine(0x10, 12, blinky), SrcLine(0x18, 15, blinky), SrcLine(0x48, 30, blinky),
                               SrcLine(0x120, 8, delay), SrcLine(0x130, 9, delay)});
  object.AddSection({".srcline", kShtSrcLine, 0, 0, static_cast<std::uint32_t>(filestr), static_cast<std::uint32_t>(text), 4, 12, srclines, {}, {}, {}});

  const Bytes banks = Join({BankInfo(0x0000, 0), BankInfo(0x0100, 0), BankInfo(0x4000, 1), BankInfo(0x8000, 2), BankInfo(0xC000, 3)});
  object.AddSection({".bankinfo", kShtBnkInfo, 0, 0xFFFFFFFF, 0, 0, 1, 8, banks, {}, {}, {}});

  object.AddSection({".srom", kShtSRom, 2, 0x2000, 0, 0, 4, 4, CodeWords(24, 3), {}, {}, {}});

  const Bytes sound = SoundBytes(200);
  object.AddSection({".kmd", kShtKdm, 2, 0x3000, 0, 0, 1, 0, sound, {}, {}, {}});
  StringTable tunes = StringTable::WithNul();
  const Bytes kdm = Join({KmdInfo(tunes.Add("beep"), 0x0000, 64, 0x100), KmdInfo(tunes.Add("chime"), 0x0040, 96, 0xC0),
                          KmdInfo(tunes.Add("alarm"), 0x00A0, 40, 0x140), KmdInfo(tunes.Add("silence"), 0xFFFFFFFF, 0, 0)});
  const std::size_t kdmstr = object.AddSection({".kdmstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, tunes.Data(), {}, {}, {}});
  object.AddSection({".kdminfo", kShtKdmInfo, 0, 0, static_cast<std::uint32_t>(kdmstr), 0, 4, 16, kdm, {}, {}, {}});

  // Relocations of the code, each computed by a postfix expression over symbols and numbers.
  enum : std::uint32_t { kAdd = 1, kSub = 2, kMul = 3, kNibble = 9, kNum = 12, kSym = 13, kShr = 14, kShl = 15 };
  const std::uint32_t expressions[][2] = {
      {kSym, 7},  {kNum, 2},      {kShr, 0},                           // 0..2   (led_toggle>>2)
      {kSym, 10}, {kNum, 0x8000}, {kAdd, 0},                           // 3..5   (tick_count + 32768)
      {kSym, 12}, {kNum, 0xFF},   {5, 0},                              // 6..8   (IO_PORTA & 255)
      {kSym, 12}, {kNum, 8},      {kShl, 0},                           // 9..11  (IO_PORTA<<8)
      {kSym, 11}, {kNum, 3},      {kNum, 2},  {kMul, 0}, {kAdd, 0},    // 12..16 (font_table + (3 * 2))
      {kSym, 9},  {kNum, 1},      {kNibble, 0},                        // 17..19 beep[1]
      {kSym, 13}, {kNum, 2},      {kSub, 0},                           // 20..22 (uart_putc - 2)
  };
  Bytes tokens;
  for (const auto& e : expressions) Append(tokens, Exp(e[0], e[1]));
  const std::size_t expr = object.AddSection({".expr", kShtExpr, 0, 0, static_cast<std::uint32_t>(symtab), 0, 4, 8, tokens, {}, {}, {}});
  const Bytes relocations = Join({Relxeb(0x12, 7, 1, 0, 15, 0, 2), Relxeb(0x20, 10, 1, 0, 15, 3, 5),
                                  Relxeb(0x24, 12, 2, 8, 15, 6, 8), Relxeb(0x30, 12, 3, 0, 31, 9, 11),
                                  Relxeb(0x40, 11, 1, 0, 11, 12, 16), Relxeb(0x44, 9, 2, 4, 7, 17, 19),
                                  Relxeb(0x50, 13, 4, 0, 23, 20, 22)});
  object.AddSection({".relxeb.text", kShtRelxeb, 0, 0, static_cast<std::uint32_t>(expr), static_cast<std::uint32_t>(text), 4, 20,
                     relocations, {}, {}, {}});

  // One loadable segment over the code, pointed at it once the layout is known.
  const std::size_t segment = object.AddProgramHeader({});
  ObjectLayout layout;
  object.Build(&layout);
  const std::uint32_t textSize = static_cast<std::uint32_t>(object.SectionAt(text).data.size());
  object.ProgramHeaderAt(segment) = {1, layout.sectionOffsets[text], 0x0000, 0x0000, textSize, textSize, 5, 4};
  object.WriteFile(argv[1]);
  return 0;
}
