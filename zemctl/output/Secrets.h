// Secrets: passwords, and what is shown in their place. One switch for the process; any thread.
#pragma once

#include <string>
#include <string_view>

namespace zemctl {

// From now on passwords are shown as they are; masked at first.
void showSecrets(bool shown);

// A password that lines of the library may hold from now on.
void rememberSecret(const std::string& password);

// Whether a modem's field of that name holds a password.
bool isSecretField(std::string_view name);

// The text itself, or what stands in its place.
std::string secret(std::string_view text);

// A line of the library, with the passwords in it masked.
std::string withoutSecrets(std::string_view line);

// A line as it was typed, with the passwords in it masked.
std::string withoutSecretWords(std::string_view line);

}  // namespace zemctl
