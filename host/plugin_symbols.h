// Reading a loaded plug-in's internal variables in tests: the address of a
// local (not exported) symbol, taken from the library file's symbol table
// and the library's load address.
#pragma once

#include <string>

namespace hostemu {

// Address of `name` inside the already loaded library `libPath`; null when
// the library is not loaded, has no symbol table (stripped) or lacks the
// symbol. Only 64-bit ELF libraries are read.
void* FindLocalSymbol(const std::string& libPath, const char* name);

}  // namespace hostemu
