// Util: which profile a data call, an emergency call or the LTE attach is to use, and how the
// modem's profiles follow a new carrier list.
//
// Works through the process's Manager and follows its rules: any thread but the engine's, one call
// into the library at a time. Each operation makes several calls of Manager and blocks for all of
// them. Nothing is thrown: a search that fails counts as a miss, and what the modem refuses shows
// in the log.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>

#include <zem/Annotations.h>
#include <zem/IProfileKey.h>
#include <zem/ProfileParams.h>

namespace zem {

class Manager;

class ZEM_EXPORT Util {
  public:
    // Any number may live at once; each has its own switch.
    Util();

    // Lets go of nothing: keys and profiles stay as they are.
    ~Util();
    Util(const Util&) = delete;
    Util& operator=(const Util&) = delete;

    // Whether a profile that serves may be rewritten with the caller's settings; not at first. May
    // be called at any time, and counts from the next step of an operation on.
    void setProfileUpdateAllowed(bool allowed);

    // The profile for a data call: one with the APN name, and unless updates are allowed the home
    // IP type, or one whose home IP type contains the asked one or is contained in it; else a new
    // transient one. What params lacks is not asked for; of several the first that comes is taken.
    // With updates allowed the profile found gets all settings of params. Null when none could be
    // found or created. For 3GPP2 the user name must agree as well.
    std::shared_ptr<IProfileKey> findOrCreateProfileForSetupDataCall(TechType techType,
                                                                     const ProfileParams& params);

    // The 3GPP profile for an emergency call: one that supports them, of the APN name if there is
    // one; else a new persistent one of these settings, with emergency support and the APN type
    // EMERGENCY alone. Null when none could be found or created.
    std::shared_ptr<IProfileKey> findOrCreateProfileForEmergencyDataCall(
        const ProfileParams& params);

    // The 3GPP profile for the LTE initial attach, brought in line with params: an exact match, a
    // loose one, an attach profile of the library's own, or a new persistent one. Credentials, APN
    // types and PDN limits of params are written to whichever is found; IP types to a loose match
    // when updates are allowed, and to an attach profile of the library's own; the APN name to the
    // latter if it has another. A profile that the library made for another purpose is never taken.
    // Null when none could be found or created.
    std::shared_ptr<IProfileKey> findOrCreateProfileForLteAttach(const ProfileParams& params);

    // Whether the 3GPP profile of that index (0 to 255) may be used for the attach and fits params
    // in APN name, IP types, credentials and authentication; a profile of the modem's own may
    // differ in what its IP types contain unless updates are allowed. False for an index without a
    // profile, and, with an error line, for a profile that the library made for another purpose.
    bool matchLteAttachProfileId(int profileId, const ProfileParams& params);

    // Gives every profile of each entry's APN class all settings of the entry, or creates a
    // persistent one where there is none. Entries without a class are skipped. Failures are logged.
    void updateModemProfileByApnClass(const std::list<ProfileParams>& params3gpp,
                                      const std::list<ProfileParams>& params3gpp2);

    // The same for one entry.
    void updateModemProfileByApnClassAndTechType(const ProfileParams& params, TechType techType);

    // Spreads the APN types of a carrier list over the profiles of each APN name. With updates
    // allowed every profile of a name gets them all; else those of each home IP type, and types
    // without a profile of their own go to the next best. A profile's types are replaced, not added
    // to. An entry without APN types counts as none, one without home IP type as V4V6.
    void updateAPNTypeBitmaskOnModemProfile(const std::list<ProfileParams>& params);

    // Its step with updates allowed: gives every profile of the name, of either family, the mask of
    // ApnTypes bits.
    void handleCombinedProfileUpdate(unsigned int mask, const std::string& apnName);

    // Its step without, for one family: the masks for the home IP types V4, V6 and V4V6, 0 for
    // none.
    void handleProfileUpdateByTechType(TechType techType, unsigned int v4Mask, unsigned int v6Mask,
                                       unsigned int v4v6Mask, const std::string& apnName);

    // Gives every profile of the family, name and home IP type the mask. True when at least one was
    // found; whether the modem took the change does not count.
    bool updateByIpType(TechType techType, IPType ipType, unsigned int mask,
                        const std::string& apnName);

  private:
    std::shared_ptr<IProfileKey> findFirst(const FilterProfileParams& filter);
    std::shared_ptr<IProfileKey> findForLteAttach(const ProfileParams& params,
                                                  ProfileParams& update);

    Manager* const manager;
    std::atomic<bool> profileUpdateAllowed{false};
};

}  // namespace zem
