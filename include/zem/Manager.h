// Manager: the library's front door to the modem's data profiles.
//
// Operations may be called from any thread but the engine's, and block until the engine has
// answered: usually well under a millisecond plus the modem's own time, up to 1000 ms for each
// modem request that times out. The hand-off carries one call at a time and queues nothing, so
// callers must not overlap calls; dropping a profile key counts as a call. If two calls do overlap,
// the later request replaces the earlier one, either caller may get the answer, and the other may
// wait until the next call or the end of the engine. A call that finds another's request or answer
// logs an error line.
//
// No operation throws. Before init, on the engine's thread, and after the end of the process's
// manager at exit, each returns its failure value and logs one error line; when the engine or the
// modem refuses, each returns its failure value and the log has the answer. A foreign key is one
// that the library did not make.
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
    // The manager of the process, created on first use. Its engine ends at exit, when static
    // objects created before that first use are still there. Calls after that find no engine; init
    // must not be called then.
    static Manager& getInstance();

    // No engine yet: init starts it. Util uses none but getInstance()'s.
    Manager();

    // Stops the engine, once it is done with what it is doing: up to 1000 ms for each modem request
    // under way. Keys that are still held stay valid objects, but reach nothing any more. Never
    // from a listener.
    ~Manager();

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Starts the engine for one modem instance (subscription, counted from 0) and selects where the
    // log lines of the process go: to the Android log when useAndroidLog is true, else to the
    // diagnostic channel. Does not wait for the modem: the profiles arrive with its first report or
    // with refresh(COMPLETE). An instance that the modem refuses shows in the log alone; there are
    // no profiles then. A second call replaces the engine; all keys of the first then reach
    // nothing. Never from a listener. When the system cannot create a thread, one error line is
    // logged and the engine of an earlier call, if any, goes on. Aborts the process when the system
    // has no descriptor left.
    void init(int instance, bool useAndroidLog);

    // Creates a profile on the modem; what an absent setting becomes is the modem's choice. Null
    // when the modem refuses, during a refresh, and for a technology that nobody knows. Unless it
    // is persistent the profile goes with its last key, so a key that is not kept deletes it at
    // once.
    std::shared_ptr<IProfileKey> addProfile(const AddProfileParams& params);

    // Changes the settings that are present in params and differ; true, and nothing is sent, when
    // none does. False for a null, foreign or expired key and during a refresh. A change that the
    // modem refuses is logged and still answers true.
    bool modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key);

    // Deletes the profile from the modem, whoever created it; all keys to it expire. False for a
    // null, foreign or expired key, during a refresh, and when the modem refuses.
    bool deleteProfile(std::shared_ptr<IProfileKey> key);

    // A new key to each profile that matches, in the order in which the library learned of the
    // profiles: for profiles read together the modem's, 3GPP before 3GPP2. Empty when none does and
    // during a refresh. Each key of the list counts, and its end is a call.
    std::list<std::shared_ptr<IProfileKey>> filter(const FilterProfileParams& params);

    // The profile's present settings. Empty for a null, foreign or expired key, during a refresh,
    // and for a profile that the modem could not read.
    std::optional<ProfileParams> getProfile(std::shared_ptr<IProfileKey> key);

    // Whether the profile matches. False also for a null, foreign or expired key and during a
    // refresh.
    bool match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key);

    // Brackets a configuration refresh of the modem. After START every other operation but dump is
    // refused and dropped keys are not counted; COMPLETE, which needs no START, reads all profiles
    // anew, by one request for each and two more, and every older key expires. A profile that
    // cannot be read is logged, and stays without settings.
    void refresh(PDCRefreshStatus status);

    // The cached profiles, the changes whose echo the modem still owes, and the newest log lines,
    // for a bug report; before init only the log lines. Passwords are in the clear. Asks nothing of
    // the engine: may be called during a refresh and beside other calls, but for init.
    std::vector<std::string> dump();

  private:
    bool initialized() const;

    std::unique_ptr<ClientRequestManager> engine;
};

}  // namespace zem
