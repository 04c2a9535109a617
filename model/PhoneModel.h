// PhoneModel: what the modem stores, what the cache holds and what every operation answers, worked
// out step by step in one thread and in the plainest way, to hold the library against.
#pragma once

#include <array>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Settings.h"

namespace zem::model {

using softmodem::FaultKind;

std::string inWords(const softmodem::Profile& profile);

struct Key {
    Tech tech;
    int id;
    uint64_t token;
    unsigned engine;  // which of those that init() built made it
    unsigned serial;  // of the keys of one model

    std::string dump() const;
};
using MaybeKey = std::optional<Key>;

struct Filter {
    Settings settings = {};
    std::optional<Tech> tech = {};
    std::optional<int> id = {};
    std::optional<bool> isZem = {}, isIA = {};
    unsigned criteria = 0;
};

class PhoneModel {
  public:
    // Before the first init(); the next cache entry takes that token.
    explicit PhoneModel(uint64_t nextToken) : nextToken(nextToken) {}

    // Begins a step. The fault affects one request, after skip others; the indications of a step
    // with a fault arrive when its calls are done.
    void setFault(FaultKind kind, unsigned skip) { fault = Fault{kind, skip}; }
    bool hasFault() const { return fault.has_value(); }

    void init(unsigned instance);
    MaybeKey addProfile(const Settings& params, bool persistent, unsigned tech, bool isIA);
    bool modifyProfile(const Settings& params, const MaybeKey& key);
    bool deleteProfile(const MaybeKey& key);
    std::vector<Key> filter(const Filter& asked);
    std::optional<Settings> getProfile(const MaybeKey& key);
    bool match(const Filter& asked, const MaybeKey& key);
    void refresh(bool start);
    void release(const Key& key);
    void listen(const Key& key, unsigned listener);

    void setProfileUpdateAllowed(bool allowed) { updateAllowed = allowed; }
    MaybeKey setupDataCall(Tech tech, const Settings& params);
    MaybeKey emergencyCall(const Settings& params);
    MaybeKey lteAttach(const Settings& params);
    bool matchLteAttach(int id, const Settings& params);
    void updateByApnClass(Tech tech, const std::vector<Settings>& entries);
    void updateApnTypes(std::vector<Settings> entries);

    // The modem, behind the library's back.
    bool modemCreate(Tech tech, std::optional<unsigned> index, const softmodem::Fields& fields);
    bool modemModify(Tech tech, unsigned index, const softmodem::Fields& fields);
    bool modemDelete(Tech tech, unsigned index);
    void modemIndicate(unsigned tech, unsigned index, unsigned event);
    void modemSwapSubscriptions();  // 0 and 1
    void modemDown();
    void modemUp();

    // Ends a step: all that is under way happens.
    void settle();

    // What must be seen then.
    std::vector<std::string> modemLines(unsigned which) const;
    std::vector<std::string> cacheLines() const;
    std::vector<std::string> pendingLines() const;
    bool hasClient() const { return client.open; }
    bool isRefreshing() const { return refreshing; }
    unsigned instance() const { return subscription; }
    std::vector<std::string> fired;  // listeners
    std::vector<std::string> errors;

  private:
    struct Entry {
        Tech tech;
        int id;
        Settings settings;
        bool persistent = false, zemCreated = false;
        int count = 0;
        std::vector<std::pair<unsigned, unsigned>> listeners = {};  // listener, serial of its key
    };
    using MaybeEntry = std::optional<Entry>;  // empty: the modem failed to read it
    struct Change {
        unsigned tech, index, event;
    };
    struct Ind {
        Tech tech;
        int id;
        unsigned event;

        friend bool operator==(const Ind& a, const Ind& b) {
            return a.tech == b.tech && a.id == b.id && a.event == b.event;
        }
        std::string dump() const;
    };
    struct Fault {
        FaultKind kind;
        unsigned skip;
    };
    struct Client {
        bool open = false, bound = false, reports = false, events = false;

        bool registered() const { return bound && reports && events; }
    };
    using Store = std::map<unsigned, softmodem::Fields>;

    template <class CarryOut>
    bool send(const char* name, CarryOut carryOut);
    // Of the subscription that the library has.
    Store& store(Tech tech) { return stores[subscription][static_cast<size_t>(tech)]; }
    softmodem::Fields* stored(Tech tech, int id);
    std::optional<unsigned> create(Store& store, Tech tech, std::optional<unsigned> index,
                                   const softmodem::Fields& fields);
    void report(const std::vector<Change>& changes, std::optional<FaultKind> met);
    void serveUp();
    void onIndication(const Change& change);
    MaybeEntry read(Tech tech, int id);
    void readAll();
    void expect(Tech tech, int id, unsigned event) { pending.push_back({tech, id, event}); }

    MaybeEntry* lookUp(const MaybeKey& key, bool isError = true);
    bool usable(const Key& key);
    Key makeKey(uint64_t token, Entry& entry);
    MaybeKey takeFirst(std::vector<Key> keys);
    bool deleteOnModem(Tech tech, int id);
    void end(MaybeEntry& entry);
    std::map<uint64_t, MaybeEntry>::iterator drop(std::map<uint64_t, MaybeEntry>::iterator entry);
    bool matches(const Filter& asked, const Entry& entry) const;
    struct IPTypes {
        std::optional<uint64_t> common, roam, overrideHome;
    };
    static IPTypes newIPTypes(const Settings& params, const Settings& held);
    static Settings wantedBy(const Settings& params, const Settings& held, Tech tech);
    void updateByIpType(Tech tech, uint64_t ipType, uint64_t mask, const std::string& apn,
                        bool& found);
    void updateApnTypesByTech(Tech tech, const std::array<uint64_t, 4>& masks,
                              const std::string& apn);
    void note(const char* error) { errors.emplace_back(error); }

    // The modem.
    std::array<std::array<Store, 2>, 2> stores;
    bool up = true;
    Client client;
    std::optional<Fault> fault;
    std::vector<Change> underWay;

    // The library.
    unsigned subscription = 0;
    unsigned engine = 0;
    bool refreshing = false;
    bool updateAllowed = false;
    uint64_t nextToken;
    unsigned nextSerial = 0;
    std::set<unsigned> alive;              // serials
    std::map<uint64_t, MaybeEntry> cache;  // by token, the order of the library's
    std::vector<Ind> pending;
};

}  // namespace zem::model
