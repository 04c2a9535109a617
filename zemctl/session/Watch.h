// Watch: what becomes of the profiles, and through whom, by looking again and again.
//
// Looks at the text that the library gives for a bug report, which disturbs neither the engine nor
// its log, and reads the profiles only when that has changed. One thread.
#pragma once

#include <map>
#include <string>

#include "output/Output.h"
#include "output/ProfileOutput.h"
#include "session/ModemView.h"

namespace zemctl {

class Session;

// Who changes profiles.
enum class Cause { kClient, kRefresh, kNetwork, kRestart, kSubscription, kFile };

class Watch {
  public:
    // Outlives the watch. The library must have started.
    explicit Watch(Session& owner);

    // Tells what has changed since the last look, with that cause.
    void look(Cause cause);
    // How many changes were told of.
    size_t told() const { return changes; }

  private:
    using Profiles = std::map<ProfileId, SeenProfile>;

    Profiles read() const;
    void tell(const SeenProfile& profile, const char* event, const std::string& cause,
              const Profiles& before);

    Session& session;
    std::string cacheText;
    Profiles known;
    size_t changes = 0;
};

}  // namespace zemctl
