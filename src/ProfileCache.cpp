#include "ProfileCache.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <utility>

#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"

namespace zem {
namespace {

std::string dumpOf(const std::shared_ptr<ModemProfile>& profile) {
    return profile ? profile->dump() : "null";
}

// Where the token's entry is, or would be.
template <class Profiles>
auto placeOf(uint64_t token, Profiles& profiles) {
    return std::lower_bound(
        profiles.begin(), profiles.end(), token,
        [](const auto& entry, uint64_t wanted) { return entry.token < wanted; });
}

bool isOf(const std::shared_ptr<ModemProfile>& profile, const ProfileChangedInd& ind) {
    return profile && profile->getTechType() == ind.techType &&
           profile->getProfileId() == ind.profileId;
}

// Null for a technology that nobody knows.
std::shared_ptr<ModemProfile> makeProfile(const AddProfileParams& params) {
    switch (params.getTechType()) {
        case TechType::TECH_3GPP: {
            auto profile = std::make_shared<Modem3gppProfile>(params);
            profile->setProfileName(params.getIsIAProfile() ? kZemIAProfileName : kZemProfileName);
            return profile;
        }
        case TechType::TECH_3GPP2:
            return std::make_shared<Modem3gpp2Profile>(params);
    }
    return nullptr;
}

}  // namespace

ProfileCache::ProfileCache(EventManager& eventManager, int instance, RequestFunction processRequest)
    : processRequest(std::move(processRequest)), proxy(eventManager, instance) {
    proxy.registerProfileChangedInd([this](ProfileChangedInd ind) { onIndication(ind); });
}

ProfileCache::~ProfileCache() = default;

uint64_t ProfileCache::generateToken() {
    static std::atomic<uint64_t> next{0};
    uint64_t token = next;
    do {
        if (token == std::numeric_limits<uint64_t>::max()) {
            ZEM_LOG(LOG_ERROR, "ProfileCache: no tokens left");
            abort();
        }
    } while (!next.compare_exchange_weak(token, token + 1));
    return token;
}

std::shared_ptr<ProfileKey> ProfileCache::add(const AddProfileParams& params) {
    const uint64_t token = generateToken();
    const auto profile = makeProfile(params);
    if (!profile) {
        ZEM_LOG(LOG_ERROR, "ProfileCache: failed to create profile");
        return nullptr;
    }
    profile->setIsPersistent(params.getIsPersistent());
    profile->setIsZemCreated(true);
    if (!proxy.add(*profile)) return nullptr;
    enter(token, profile);
    // The modem reports a new profile twice.
    expectEcho(params.getTechType(), profile->getProfileId(), ProfileChangedEvent::Create);
    expectEcho(params.getTechType(), profile->getProfileId(), ProfileChangedEvent::Modify);
    ZEM_LOG(LOG_API, "Added: %s", profile->dump().c_str());
    return makeKey(token, *profile);
}

bool ProfileCache::modify(const ModifyProfileParams& params,
                          const std::shared_ptr<ProfileKey>& key) {
    const auto* entry = find(key, LOG_API);
    if (!entry) return false;
    const auto& profile = *entry;
    if (!profile) return true;
    const auto diff = profile->diff(params);
    if (!diff) {
        ZEM_LOG(LOG_API, "ProfileCache: profile is unchanged");
        return true;
    }
    const TechType techType = profile->getTechType();
    const int profileId = profile->getProfileId();
    if (!proxy.modify(*diff, techType, profileId)) {
        ZEM_LOG(LOG_ERROR, "ProfileCache: failed to modify modem profile");
        return true;
    }
    {
        const MutexLock lock(mutex);
        profile->apply(diff);
    }
    ZEM_LOG(LOG_API, "Diff: %s", diff->dump().c_str());
    expectEcho(techType, profileId, ProfileChangedEvent::Modify);
    return true;
}

bool ProfileCache::remove(const std::shared_ptr<ProfileKey>& key) {
    const auto* entry = find(key);
    if (!entry) return false;
    TechType techType = key->getTechType();
    int profileId = key->getProfileId();
    if (!proxy.remove(techType, profileId)) {
        ZEM_LOG(LOG_ERROR, "ProfileCache: Failed to remove profile");
        return false;
    }
    if (*entry) {
        techType = (*entry)->getTechType();
        profileId = (*entry)->getProfileId();
    }
    erase(key->getToken());
    expectEcho(techType, profileId, ProfileChangedEvent::Delete);
    return true;
}

bool ProfileCache::match(const FilterProfileParams& params,
                         const std::shared_ptr<ProfileKey>& key) {
    const auto* entry = find(key);
    return entry && *entry && (*entry)->match(params);
}

std::optional<ProfileParams> ProfileCache::get(const std::shared_ptr<ProfileKey>& key) {
    const auto* entry = find(key);
    if (!entry || !*entry) return std::nullopt;
    return (*entry)->get();
}

std::list<std::shared_ptr<ProfileKey>> ProfileCache::filter(const FilterProfileParams& params) {
    std::list<std::shared_ptr<ProfileKey>> keys;
    const ProfileQuery query = params;
    for (const auto& [token, profile] : engineView()) {
        if (!profile) {
            ZEM_LOG(LOG_ERROR, "ProfileCache: null profile");
        } else if (profile->match(query)) {
            keys.push_back(makeKey(token, *profile));
        }
    }
    return keys;
}

void ProfileCache::registerExpirationListener(std::function<void()> callback,
                                              std::weak_ptr<IProfileKey> key, unsigned long token) {
    ZEM_LOG(LOG_VERBOSE, "ProfileCache: registerExpirationListener %d", static_cast<int>(token));
    const auto* entry = find(token, LOG_ERROR);
    if (entry && *entry) {
        (*entry)->registerExpirationListener(std::move(callback), std::move(key));
    }
}

bool ProfileCache::releaseProfile(unsigned long token) {
    ZEM_LOG(LOG_API, "ProfileCache: releaseProfile token=%d", static_cast<int>(token));
    const auto* entry = find(token, LOG_ERROR);
    if (!entry || !*entry) return false;
    ModemProfile& profile = **entry;
    profile.clearExpiredListeners();
    if (profile.getRefCount() >= 2) {
        profile.decRefCount();
        return true;
    }
    if (profile.getIsPersistent() || !profile.getIsZemCreated()) {
        ZEM_LOG(LOG_API, "ProfileCache: ignoring non-persistent or non-zem created");
        return true;
    }
    const TechType techType = profile.getTechType();
    const int profileId = profile.getProfileId();
    if (!proxy.remove(techType, profileId)) {
        ZEM_LOG(LOG_ERROR, "ProfileCache: failed to release profile");
        return false;
    }
    profile.decRefCount();
    ZEM_LOG(LOG_API, "Released profile %d", profileId);
    expectEcho(techType, profileId, ProfileChangedEvent::Delete);
    erase(token);
    return true;
}

void ProfileCache::onIndication(ProfileChangedInd ind) {
    ZEM_LOG(LOG_API, "ProfileCache: onIndication < %s", ind.dump().c_str());
    if (absorbEcho(ind)) {
        ZEM_LOG(LOG_API, "ProfileCache: pending transaction confirmed");
        return;
    }
    ZEM_LOG(LOG_API, "ProfileCache: updating cache due to indication!");
    switch (ind.event) {
        case ProfileChangedEvent::Create: {
            const uint64_t token = generateToken();
            enter(token, proxy.get(ind.techType, ind.profileId));
            break;
        }
        case ProfileChangedEvent::Delete:
            dropProfiles(ind);
            break;
        case ProfileChangedEvent::Modify:
            rereadProfiles(ind);
            break;
        case ProfileChangedEvent::SubscriptionChange:
        case ProfileChangedEvent::ProfileReady:
            refresh();
            break;
        default:  // a number that is no enumerator
            ZEM_LOG(LOG_ERROR, "Invalid ProfileChangedEvent");
            break;
    }
}

bool ProfileCache::refresh() {
    Profiles old;
    {
        const MutexLock lock(mutex);
        old.swap(profiles);
    }
    old.clear();
    for (auto& profile : proxy.getAllProfiles()) enter(generateToken(), std::move(profile));
    ZEM_LOG(LOG_API, "Refreshed Profiles:");
    for (const auto& entry : engineView()) ZEM_LOG(LOG_API, "%s", dumpOf(entry.profile).c_str());
    return true;
}

std::vector<std::string> ProfileCache::dump() const {
    const MutexLock lock(mutex);
    std::vector<std::string> lines = {"Cache:"};
    for (const auto& [token, profile] : profiles) {
        lines.push_back("  " + std::to_string(token) + ": " + dumpOf(profile));
    }
    lines.emplace_back("Pending:");
    for (const auto& pending : pendingTransactions) lines.push_back("  " + pending.dump());
    return lines;
}

const std::shared_ptr<ModemProfile>* ProfileCache::find(uint64_t token,
                                                        LogLevel levelOnMiss) const {
    const auto entry = placeOf(token, engineView());
    if (entry != engineView().end() && entry->token == token) return &entry->profile;
    LogWrapper::getInstance().log(levelOnMiss, kLogTag,
                                  "ProfileCache: token is not present or expired");
    return nullptr;
}

const std::shared_ptr<ModemProfile>* ProfileCache::find(const std::shared_ptr<ProfileKey>& key,
                                                        LogLevel levelOnMiss) const {
    return key ? find(key->getToken(), levelOnMiss) : nullptr;
}

std::shared_ptr<ProfileKey> ProfileCache::makeKey(uint64_t token, ModemProfile& profile) const {
    profile.incRefCount();
    return std::make_shared<ProfileKey>(profile.getTechType(), profile.getProfileId(), token,
                                        processRequest);
}

void ProfileCache::enter(uint64_t token, std::shared_ptr<ModemProfile> profile) {
    const MutexLock lock(mutex);
    profiles.push_back({token, std::move(profile)});
}

void ProfileCache::erase(uint64_t token) {
    std::shared_ptr<ModemProfile> gone;  // outlives the lock: its listeners run when it goes
    const MutexLock lock(mutex);
    const auto entry = placeOf(token, profiles);
    gone = std::move(entry->profile);
    profiles.erase(entry);
}

void ProfileCache::expectEcho(TechType techType, int profileId, ProfileChangedEvent event) {
    const MutexLock lock(mutex);
    pendingTransactions.push_back({techType, profileId, event});
}

bool ProfileCache::absorbEcho(const ProfileChangedInd& ind) {
    const auto& pending = enginePending();
    const auto echo = std::find(pending.begin(), pending.end(), ind);
    if (echo == pending.end()) return false;
    const MutexLock lock(mutex);
    pendingTransactions.erase(echo);
    return true;
}

void ProfileCache::dropProfiles(const ProfileChangedInd& ind) {
    const auto isGone = [&ind](const Entry& entry) { return isOf(entry.profile, ind); };
    std::vector<Entry> gone;  // outlives the lock: listeners run when they go
    const MutexLock lock(mutex);
    std::copy_if(profiles.begin(), profiles.end(), std::back_inserter(gone), isGone);
    profiles.erase(std::remove_if(profiles.begin(), profiles.end(), isGone), profiles.end());
}

void ProfileCache::rereadProfiles(const ProfileChangedInd& ind) {
    for (size_t i = 0; i < engineView().size(); ++i) {
        if (!isOf(engineView()[i].profile, ind)) continue;
        auto current =
            proxy.get(ind.techType, ind.profileId);  // then the old one, after the unlock
        const MutexLock lock(mutex);
        profiles[i].profile.swap(current);
    }
}

}  // namespace zem
