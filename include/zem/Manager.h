// Manager: the library's front door to the modem's data profiles.
//
// Operations may be called from any thread but the engine's, and block until the engine has
// answered: usually well under a millisecond plus the modem's own time, up to 1000 ms for each
// modem request that times out. The hand-off carries one call at a time and queues nothing, so
// callers must not overlap calls; dropping a profile key counts as a call. If two calls do overlap,
// the later request replaces the earlier one and either caller may get the answer.
//
// No operation but init throws. Before init each gives its failure value and logs one line; when
// the engine or the modem refuses, each gives its failure value and the log has the answer.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zem/Annotations.h>
#include <zem/IProfileKey.h>
#include <zem/PDCRefreshStatus.h>
#include <zem/ProfileParams.h>

namespace zem {

class ClientRequestManager;

class ZEM_EXPORT Manager {
  public:
    // The manager of the process, made on first use and destroyed at exit.
    static Manager& getInstance();

    Manager();

    // Stops the engine, once it is done with what it is doing: up to 1000 ms for each modem request
    // under way. Keys that are still held stay valid objects, but reach nothing any more. Never
    // from a listener.
    ~Manager();

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Starts the engine for one modem instance (subscription) and selects where log lines go: to
    // the Android log when useAndroidLog is true, else to the diagnostic channel. The profiles
    // arrive with the modem's first report or with refresh(COMPLETE). A second call replaces the
    // engine; all keys of the first then reach nothing. Never from a listener. Aborts the process
    // when the system has no descriptor left, and throws std::system_error when it has no thread.
    void init(int instance, bool useAndroidLog);

    // Creates a profile on the modem. Null when the modem refuses, during a refresh, and for a
    // technology that nobody knows.
    std::shared_ptr<IProfileKey> addProfile(const AddProfileParams& params);

    // Changes the settings that are present in params. False for a null, foreign or expired key and
    // during a refresh. A change that the modem refuses is logged and still answers true.
    bool modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key);

    // Deletes the profile from the modem, whoever created it; all keys to it expire. False for a
    // null, foreign or expired key, during a refresh, and when the modem refuses.
    bool deleteProfile(std::shared_ptr<IProfileKey> key);

    // A new key to each profile that matches, in no particular order. Empty when none does and
    // during a refresh.
    std::list<std::shared_ptr<IProfileKey>> filter(const FilterProfileParams& params);

    // The profile's present settings. Empty for a null, foreign or expired key and during a
    // refresh.
    std::optional<ProfileParams> getProfile(std::shared_ptr<IProfileKey> key);

    // Whether the profile matches. False also for a null, foreign or expired key and during a
    // refresh.
    bool match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key);

    // Brackets a configuration refresh of the modem. After START every other operation is refused
    // and dropped keys are not counted; COMPLETE, which needs no START, reads all profiles anew,
    // and every older key expires.
    void refresh(PDCRefreshStatus status);

    // The cached profiles, the changes whose echo the modem still owes, and the newest log lines,
    // for a bug report. Passwords are in the clear. May be called during a refresh and beside other
    // calls, but for init.
    std::vector<std::string> dump();

  private:
    bool initialized() const;

    std::unique_ptr<ClientRequestManager> engine;
};

}  // namespace zem
