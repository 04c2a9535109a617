// ProfileCache: every data profile stored in the modem, by token.
//
// Engine thread only, but for dump(), which any thread may call.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zem/EventManager.h>
#include <zem/Mutex.h>
#include <zem/ProfileParams.h>

#include "LogWrapper.h"
#include "ModemProfile.h"
#include "ProfileChangedInd.h"
#include "ProfileKey.h"
#include "ZapWdsProxy.h"

namespace zem {

class ProfileCache {
  public:
    // Begins empty and reads nothing. Every key gets a copy of processRequest to reach the engine
    // by.
    ProfileCache(EventManager& eventManager, int instance, RequestFunction processRequest);
    ~ProfileCache();
    ProfileCache(const ProfileCache&) = delete;
    ProfileCache& operator=(const ProfileCache&) = delete;

    // Null when the modem refuses; a token is consumed either way.
    std::shared_ptr<ProfileKey> add(const AddProfileParams& params);

    // False only for a null or expired key: a change that the modem refuses answers true.
    bool modify(const ModifyProfileParams& params, const std::shared_ptr<ProfileKey>& key);

    // Deletes the profile whatever its count. False for a null or expired key and when the modem
    // refuses.
    bool remove(const std::shared_ptr<ProfileKey>& key);

    bool match(const FilterProfileParams& params, const std::shared_ptr<ProfileKey>& key);
    std::optional<ProfileParams> get(const std::shared_ptr<ProfileKey>& key);

    // A counted key to each profile that matches.
    std::list<std::shared_ptr<ProfileKey>> filter(const FilterProfileParams& params);

    // The callback runs when the cache lets go of the profile object that the token names now.
    void registerExpirationListener(std::function<void()> callback, std::weak_ptr<IProfileKey> key,
                                    unsigned long token);

    // One key less. The last key of a transient profile of the library's own takes the profile with
    // it.
    bool releaseProfile(unsigned long token);

    // Absorbs the echo of the cache's own changes and applies all others.
    void onIndication(ProfileChangedInd ind);

    // Reads every profile anew under new tokens. Always true.
    bool refresh();

    std::vector<std::string> dump() const;

    // Never the same twice in a process; aborts it when there are no more. Any thread.
    static uint64_t generateToken();

  private:
    struct Entry {
        uint64_t token;
        std::shared_ptr<ModemProfile> profile;  // null: the modem failed to read it
    };
    // In ascending order of tokens, as they are entered: a filter walks over it from end to end,
    // and a few hundred are searched in no time.
    using Profiles = std::vector<Entry>;

    // The engine, being the only writer, reads without the lock.
    const Profiles& engineView() const ZEM_NO_THREAD_SAFETY_ANALYSIS { return profiles; }
    const std::list<ProfileChangedInd>& enginePending() const ZEM_NO_THREAD_SAFETY_ANALYSIS {
        return pendingTransactions;
    }

    const std::shared_ptr<ModemProfile>* find(uint64_t token, LogLevel levelOnMiss) const;
    const std::shared_ptr<ModemProfile>* find(const std::shared_ptr<ProfileKey>& key,
                                              LogLevel levelOnMiss = LOG_ERROR) const;
    std::shared_ptr<ProfileKey> makeKey(uint64_t token, ModemProfile& profile) const;
    void enter(uint64_t token, std::shared_ptr<ModemProfile> profile);
    void erase(uint64_t token);
    void expectEcho(TechType techType, int profileId, ProfileChangedEvent event);
    bool absorbEcho(const ProfileChangedInd& ind);
    void dropProfiles(const ProfileChangedInd& ind);
    void rereadProfiles(const ProfileChangedInd& ind);

    const RequestFunction processRequest;
    // Before the profiles: their listeners run while the modem's client is still there.
    ZapWdsProxy proxy;
    // Held for a change, and by dump() while it renders; never over modem traffic or the end of a
    // profile, whose listeners must be free to run.
    mutable Mutex mutex;
    Profiles profiles ZEM_GUARDED_BY(mutex);
    // Changes of the cache's own whose indication is still to come, oldest first.
    std::list<ProfileChangedInd> pendingTransactions ZEM_GUARDED_BY(mutex);
};

}  // namespace zem
