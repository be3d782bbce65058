// Small forms of the inputs that once cost far more than their size: an archive whose linker
// member lists one member many times, members and sections whose bytes overlap, relocation
// records that all name one long expression run, and symbol names that share one name hash.
// Built with the independent writers only; the tests, the fuzz seeds and the benchmarks share
// them.
#ifndef KOFD_TESTS_SUPPORT_HOSTILE_SHAPES_H
#define KOFD_TESTS_SUPPORT_HOSTILE_SHAPES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelf_writer.h"

namespace kelf_test {

// An object of one program section of dataSize bytes and one global function symbol "name".
Bytes ObjectWithSymbol(const std::string& name, std::size_t dataSize);

// An archive of one member (ObjectWithSymbol("shared", memberSize)) whose linker member lists
// its offset `listings` times, with one symbol for each listing.
Bytes RepeatedMemberArchive(std::size_t memberSize, std::size_t listings);

// An archive of `members` members at different offsets, each header right behind the one
// before and each Size reaching to the end of the file: every member's bytes hold those of the
// members after it, and a dataSize-byte object at the end.
Bytes OverlappingMemberArchive(std::size_t members, std::size_t dataSize);

// An object of `sections` program sections that all cover the same dataSize bytes.
Bytes OverlappingSectionsObject(std::size_t sections, std::size_t dataSize);

// An object whose relocation section (type 22) holds `records` records that all name the one
// expression run of 2 * runPairs + 1 tokens: NUM 1, then runPairs times NUM 1, +.
Bytes SharedRunObject(std::size_t records, std::size_t runPairs);

// 2^stages distinct names with one name hash ((h x 33) XOR signed byte, from 5381): each stage
// appends one of two 4-byte blocks that lead from the same hash to the same hash.
std::vector<std::string> CollidingNames(unsigned stages);

// An object that defines one global function symbol per name.
Bytes ObjectWithSymbols(const std::vector<std::string>& names);

// An archive of that object with every name listed in its linker member.
Bytes ArchiveWithSymbols(const std::vector<std::string>& names);

}  // namespace kelf_test

#endif  // KOFD_TESTS_SUPPORT_HOSTILE_SHAPES_H
