// KeyRing: the keys that a session holds, by name. One thread: dropping a key is a call into the
// library.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <zem/IProfileKey.h>

#include "session/ModemView.h"

namespace zemctl {

struct HeldKey {
    std::string name;     // "k1"
    std::string purpose;  // what it is held for
    ProfileId id;
    bool transient;                           // its last key takes the profile along
    std::shared_ptr<std::atomic<bool>> told;  // by the library, that the profile has changed
    std::shared_ptr<zem::IProfileKey> key;
};

class KeyRing {
  public:
    // The name is k1, k2 and so on unless one is given, which must be free.
    HeldKey& hold(const std::shared_ptr<zem::IProfileKey>& key, const std::string& purpose,
                  bool transient, const std::string& name = "");

    // Null when none has that name.
    HeldKey* find(const std::string& name);
    // Taken out, to be dropped by the caller. The name must be held.
    HeldKey take(const std::string& name);
    void clear() { held.clear(); }

    bool empty() const { return held.empty(); }
    std::vector<std::string> names() const;
    // How many hold the same profile as the library counts them.
    size_t references(const HeldKey& key) const;
    // Whether the last key takes the profile along, as those held say.
    bool isTransient(const std::shared_ptr<zem::IProfileKey>& key) const;
    // The newest; there must be one.
    const HeldKey& back() const { return held.back(); }

    // A listener is called once, so it is set anew when it was.
    static void listen(const HeldKey& key);

    std::list<HeldKey>::iterator begin() { return held.begin(); }
    std::list<HeldKey>::iterator end() { return held.end(); }
    std::list<HeldKey>::const_iterator begin() const { return held.begin(); }
    std::list<HeldKey>::const_iterator end() const { return held.end(); }

  private:
    std::list<HeldKey>::iterator place(const std::string& name);

    std::list<HeldKey> held;  // oldest first
    unsigned given = 0;
};

}  // namespace zemctl
