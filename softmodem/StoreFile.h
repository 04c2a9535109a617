// StoreFile: the profile stores as a text that a person can read and edit. Any thread.
#pragma once

#include <string>

#include "ModemState.h"

namespace softmodem {

std::string formatStores(const Stores& stores);

// Throws std::runtime_error "NAME:LINE: what is wrong".
Stores parseStores(const std::string& text, const std::string& name);

// Both throw std::runtime_error. A write leaves the old file or the new one, never a part.
std::string readFile(const std::string& path);
void writeFileAtomically(const std::string& path, const std::string& text);

}  // namespace softmodem
