#include "session/KeyRing.h"

#include <algorithm>
#include <utility>

namespace zemctl {

HeldKey& KeyRing::hold(const std::shared_ptr<zem::IProfileKey>& key, const std::string& purpose,
                       bool transient, const std::string& name) {
    std::string unused = name;
    while (unused.empty() || (name.empty() && find(unused))) {
        unused = 'k' + std::to_string(++given);
    }
    held.push_back(
        {unused, purpose, idOf(key), transient, std::make_shared<std::atomic<bool>>(false), key});
    listen(held.back());
    return held.back();
}

std::list<HeldKey>::iterator KeyRing::place(const std::string& name) {
    return std::find_if(held.begin(), held.end(),
                        [&](const HeldKey& each) { return each.name == name; });
}

HeldKey* KeyRing::find(const std::string& name) {
    const auto found = place(name);
    return found == held.end() ? nullptr : &*found;
}

HeldKey KeyRing::take(const std::string& name) {
    const auto found = place(name);
    HeldKey taken = std::move(*found);
    held.erase(found);
    return taken;
}

std::vector<std::string> KeyRing::names() const {
    std::vector<std::string> result;
    for (const HeldKey& each : held) {
        result.push_back(each.name);
    }
    return result;
}

// The dump names the token, by which the library counts.
size_t KeyRing::references(const HeldKey& key) const {
    return static_cast<size_t>(std::count_if(
        held.begin(), held.end(),
        [text = key.key->dump()](const HeldKey& other) { return other.key->dump() == text; }));
}

bool KeyRing::isTransient(const std::shared_ptr<zem::IProfileKey>& key) const {
    return std::any_of(held.begin(), held.end(), [text = key->dump()](const HeldKey& each) {
        return each.transient && each.key->dump() == text;
    });
}

void KeyRing::listen(const HeldKey& key) {
    key.key->registerExpirationListener([told = key.told] { *told = true; });
}

}  // namespace zemctl
