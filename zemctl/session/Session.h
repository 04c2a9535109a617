// Session: one modem, one library and the keys held to its profiles, for the verbs to work on.
//
// The modem boots and the library starts when a verb needs them. One thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <zem/Manager.h>

#include "command/CommandParser.h"
#include "command/Globals.h"
#include "output/Output.h"
#include "output/Report.h"
#include "session/Files.h"
#include "session/KeyRing.h"
#include "session/ModemAccess.h"
#include "session/Watch.h"
#include "verbs/Phone.h"

namespace zemctl {

// What stands in a command line for a profile: "3gpp:1", or the name of a key. Throws UsageError
// when it can be neither.
struct ProfileWord {
    static ProfileWord parse(const std::string& text);

    std::string text;
    std::optional<ProfileId> id;  // empty: a key's name
};

class Session {
  public:
    Session(const Globals& chosen, Output& where);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The library, started and with the modem's profiles read. Throws Failure with kModemDown.
    zem::Manager& library();
    ModemAccess& modem();
    Phone& phone();
    // As the modem has them; without starting anything.
    std::vector<StoredProfile> storedProfiles() const;
    unsigned subscription() const { return static_cast<unsigned>(globals.subscription); }
    const std::string& logLevel() const { return globals.log; }
    const Globals& options() const { return globals; }
    // The place is no longer that of a transient profile of this session.
    void giveUpPlace(const ProfileId& id) { transients.erase(id); }
    // After Ctrl-C has ended a step and not the session.
    void goOn();
    // For a step that waits for others: nobody else is kept from the modem's file any longer.
    void unlockFile() { lock.reset(); }
    bool libraryStarted() const { return started; }

    // A key to what the word names: one that is held, or one to give back at once. Throws Failure
    // with kNoProfile.
    std::shared_ptr<zem::IProfileKey> keyTo(const ProfileWord& word);
    // What the library reads there. Throws Failure with kNoProfile.
    zem::ProfileParams read(const std::shared_ptr<zem::IProfileKey>& key);

    // For a verb that boots a modem itself. Throws UsageError when another one is asked for.
    void requireOwnModem() const;
    // Throws Failure with kRefused while the library would refuse.
    void refuseDuringRefresh() const;

    // Waits until the library has seen all that the modem has to say. Throws Failure with
    // kModemDown.
    void settle();
    // Takes over what somebody else has written to the modem's file. Whether there was anything.
    bool reload();
    // Writes the modem's file when its profiles have changed. Throws Failure.
    void save();
    // Runs a step; what it throws, a wish to end apart, is said and becomes its status.
    int run(const Step& step);
    // Runs a line's verbs up to the first that fails, shown as the line wants it.
    int run(const ParsedCommand& command);
    // Releases the keys, one after the other, and saves. The exit status.
    int finish();
    // The same without a word, for a user who does not want to wait.
    void abandon();

    Output& output;
    Report report;
    KeyRing keys;
    bool interactive = false;      // lines are typed or played, and not one command line
    bool over = false;             // the user wants no more of it
    Cause cause = Cause::kClient;  // of what the step that runs changes
    std::unique_ptr<Watch> watch;  // null: nobody watches
    bool refreshing = false;       // the library refuses all else until the refresh is complete

  private:
    // The status of what it does; what it throws is said.
    int attempt(const std::function<int()>& what) const;

    // Throws Failure with kModemDown.
    void waitForModem(std::chrono::milliseconds limit);
    // Fills the modem from its file. Throws UsageError.
    void load(ModemAccess& modem);
    void lockFile();

    const Globals globals;
    std::unique_ptr<ModemAccess> access;
    std::unique_ptr<Phone> policies;
    bool started = false;
    bool silent = false;                  // the modem has not answered the library
    std::optional<FileLock> lock;         // while a step runs
    std::set<ProfileId> transients;       // created for keys of this session
    std::string storeText;                // as saved last
    std::optional<std::string> fileText;  // what the file held then; empty: there was none
};

}  // namespace zemctl
