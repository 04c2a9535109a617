// Phone: what a phone asks of zem::Util, with a second opinion on each answer.
//
// Each operation is a step: it shows what was asked, what was answered and what has changed on the
// modem, and checks all of it. Keys go to the key ring. One thread: the library takes one
// call at a time, and dropping a key is a call.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <zem/Manager.h>
#include <zem/Util.h>

#include "output/Report.h"
#include "session/KeyRing.h"
#include "session/ModemAccess.h"
#include "session/ModemView.h"
#include "verbs/OperatorList.h"
#include "verbs/SecondOpinion.h"

namespace zemctl {

class Phone {
  public:
    // All outlive the phone.
    Phone(Report& output, ModemAccess& modemAccess, KeyRing& keyRing)
        : report(output), modem(modemAccess), keys(keyRing) {}

    // Boots the modem with its factory profiles and starts the library. False when nothing can be
    // asked.
    bool start(const std::string& logLevel);

    // --- zem::Util's operations; empty when the library gave no key ---
    void allowUpdates(bool allowed);
    std::optional<ProfileId> setupCall(zem::TechType tech, const zem::ProfileParams& params);
    std::optional<ProfileId> emergencyCall(const zem::ProfileParams& params);
    std::optional<ProfileId> attach(const zem::ProfileParams& params);
    bool matchAttach(int id, const zem::ProfileParams& params);  // what the library answered
    void applyApns(const OperatorOptions& source, const CarrierList& list, bool also3gpp2);

    // --- What happens to a phone besides ---
    // A second application of the list changes nothing.
    void applyApnsAgain(const CarrierList& list, bool also3gpp2);
    // The network changes a profile: the holders of its keys are told, and no others.
    void changeBehind(const ProfileId& id);
    // All keys expire, and the modem forgets its transient profiles.
    void restartModem();
    // The last key to a transient profile takes the profile with it; all others stay.
    void releaseKeys(const std::vector<std::string>& names);
    // What the modem has now, beside what it booted with: nothing transient is left.
    void showSinceBoot();

  private:
    using Key = std::shared_ptr<zem::IProfileKey>;
    // What the answered profile has to read like, new or as it was found.
    using Expected = std::function<zem::ProfileParams(const zem::ProfileParams* found)>;

    void ask(const std::string& title, const zem::ProfileParams& params);
    std::optional<ProfileId> take(const std::string& purpose, const Key& key,
                                  const ModemView& before, const Choice& choice,
                                  bool createsTransient, const Expected& expected);
    void update(const CarrierList& list, bool also3gpp2);
    bool onModem(const ProfileId& id) const;
    ModemView look() const { return ModemView::take(manager, modem); }

    Report& report;
    ModemAccess& modem;
    KeyRing& keys;
    zem::Manager& manager = zem::Manager::getInstance();
    zem::Util util;
    bool updatesAllowed = false;
    ModemView booted;
};

}  // namespace zemctl
