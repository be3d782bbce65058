// The fuzz input as a file: the library reads only through file handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

// Writes the input to a file of this process's own and returns its path.
const std::string& WriteFuzzInput(const std::uint8_t* pData, std::size_t nSize);

// A stream that takes everything and keeps nothing. The first call also points std::cout and
// stdout, where some dumps write, at nothing, so that a fuzz run prints no dump text.
std::ostream& NullStream();
