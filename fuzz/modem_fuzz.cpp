// The cache in front of a modem that answers anything, under any order of operations. One thread
// stands for the callers and for the engine alike, and a request that the keys send is seen to at
// once, as the engine would.
#include <algorithm>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CallbackRequest.h"
#include "Input.h"
#include "LogWrapper.h"
#include "ProfileCache.h"
#include "Records.h"
#include "RogueModem.h"
#include "SteppedLoop.h"

namespace zem::fuzz {
namespace {

using Key = std::shared_ptr<ProfileKey>;

constexpr size_t kLongestLine = 511;

// Makes every line be formatted, and counts the echoes that a cache absorbs.
class Writer : public LogWriter {
  public:
    explicit Writer(unsigned& absorbedEchoes) : absorbed(absorbedEchoes) {}

    void write(LogLevel, std::string, std::string message) override {
        require(message.size() <= kLongestLine, "a line is cut");
        if (message == "ProfileCache: pending transaction confirmed") ++absorbed;
    }
    int convertPrio(LogLevel) override { return 0; }

  private:
    unsigned& absorbed;
};

class Phone {
  public:
    explicit Phone(Input& choices) : input(choices), modem(choices) {
        LogWrapper::getInstance().setLogWriter(std::make_unique<Writer>(absorbed));
        boot();
    }

    ~Phone() {
        if (input.flag()) keys.clear();
        cache.reset();
        keys.clear();
        LogWrapper::getInstance().setLogWriter(nullptr);
        require(released == handedOut, "every key is given back once");
    }

    void add() {
        // In braces, which take from the input in the order that they are written in.
        const AddProfileParams params{drawRecord<ProfileParams>(input), input.flag(),
                                      TechType(input.rarely(16) ? input.small() : input.flag()),
                                      input.flag()};
        const unsigned before = modem.counts[ZAP_WDS_CREATE_PROFILE_REQ_V01].succeeded;
        const Key key = keep(cache->add(params));
        require(
            (key != nullptr) == (modem.counts[ZAP_WDS_CREATE_PROFILE_REQ_V01].succeeded > before),
            "a profile that the modem has made has a key, and no other");
        require(!key || key->getTechType() == params.getTechType(), "a key knows its technology");
        if (key && !params.getIsPersistent()) ownTransient[key->getToken()] = reads();
    }

    void modify() {
        const Key key = drawKey();
        const bool live = isLive(key);
        require(cache->modify(drawRecord<ModifyProfileParams>(input), key) == live,
                "a change answers whether the key is live");
        readDump();
        require(isLive(key) == live, "a change keeps the token");
    }

    void remove() {
        const Key key = drawKey();
        const bool live = isLive(key);
        const bool removed = cache->remove(key);
        require(!removed || live, "what is not there is not removed");
        readDump();
        require(isLive(key) == (live && !removed), "what is removed is gone");
    }

    void match() {
        const Key key = drawKey();
        const FilterProfileParams filter = drawFilter(input);
        const bool matches = cache->match(filter, key);
        require(!matches || isLive(key), "an expired key matches nothing");
        require(cache->match({}, key) == isLive(key, true), "an empty filter matches all");
    }

    void get() {
        const Key key = drawKey();
        require(cache->get(key).has_value() == isLive(key, true), "a live key has its settings");
    }

    void filter() {
        const FilterProfileParams asked = drawFilter(input);
        for (const Key& key : keepAll(cache->filter(asked))) {
            require(cache->match(asked, key), "what is found matches", asked.dump());
        }
    }

    void filterAll() {
        const auto found = keepAll(cache->filter({}));
        std::set<uint64_t> tokens;
        for (const Key& key : found) {
            require(isLive(key, true), "what is found is there");
            tokens.insert(key->getToken());
        }
        require(tokens.size() == found.size() &&
                    tokens.size() == static_cast<size_t>(std::count_if(
                                         entries.begin(), entries.end(),
                                         [](const auto& entry) { return entry.second; })),
                "an empty filter finds each profile once");
    }

    void dropKey() {
        if (keys.empty()) return;
        const auto place = keys.begin() + static_cast<ptrdiff_t>(input.upTo(255) % keys.size());
        Key key = std::move(*place);
        keys.erase(place);
        const uint64_t token = key->getToken();
        const bool last = std::none_of(
            keys.begin(), keys.end(), [&](const Key& other) { return other->getToken() == token; });
        const auto own = ownTransient.find(token);
        const bool mustGo = last && !refreshing && own != ownTransient.end() && isLive(key) &&
                            own->second == reads();
        const unsigned before = modem.counts[ZAP_WDS_DELETE_PROFILE_REQ_V01].sent;
        key.reset();
        const unsigned sent = modem.counts[ZAP_WDS_DELETE_PROFILE_REQ_V01].sent - before;
        require(sent <= 1 && (last || sent == 0), "the last key alone takes its profile with it");
        require(!mustGo || sent == 1, "the last key takes its transient profile with it");
        if (last || refreshing) ownTransient.erase(token);
    }

    void dropAllKeys() {
        keys.clear();
        ownTransient.clear();
    }

    void listen() {
        const Key key = drawKey();
        if (!key) return;
        const auto listener = std::make_shared<Listener>();
        listener->key = key;
        listener->registered = isLive(key, true) && !refreshing;
        listeners.push_back(listener);
        key->registerExpirationListener([listener] {
            require(listener->registered, "an expired key has no listener");
            require(!listener->key.expired(), "a listener goes with its key");
            require(++listener->calls == 1, "a listener is called once");
        });
    }

    void refresh() {
        const std::map<uint64_t, bool> before = entries;
        const unsigned readsBefore = reads();
        require(cache->refresh(), "a refresh always answers");
        readDump();
        require(entries.size() == reads() - readsBefore, "every listed profile is entered");
        for (const auto& [token, profile] : before) {
            require(entries.count(token) == 0, "a refresh expires every token");
        }
        refreshing = false;
    }

    // Keys that go now are not counted.
    void beginRefresh() { refreshing = true; }

    void indicateDirectly() {
        cache->onIndication({TechType(input.small()), static_cast<int>(input.small()),
                             ProfileChangedEvent(input.small())});
    }

    // Until rest: what comes while events are handled may wait for the next pass.
    void pass() {
        constexpr int kMostPasses = 1000;
        int passes = 0;
        do {
            stepped.pass();
            require(++passes < kMostPasses, "no indication is forgotten, and no failed client");
        } while (!modem.atRest());
    }

    void indicate() { modem.indicate(); }
    void notify() { modem.notify(); }
    void fail() { modem.fail(); }

    // A new engine, while keys of the old one are still held.
    void restart() {
        cache.reset();
        modem.forgetIndications();
        for (const auto& listener : listeners) listener->checkExpired();
        boot();
    }

    // After each operation.
    void check() {
        readDump();
        require(pending == changesMade() - changesBefore - absorbed,
                "an echo is expected of each change that the modem made, and absorbed once");
        for (const auto& listener : listeners) {
            const auto key = listener->key.lock();
            if (!key) continue;
            if (!isLive(std::static_pointer_cast<ProfileKey>(key))) listener->checkExpired();
        }
        listeners.remove_if([](const auto& listener) { return listener->key.expired(); });
    }

  private:
    struct Listener {
        std::weak_ptr<IProfileKey> key;
        bool registered = false;
        int calls = 0;

        void checkExpired() const {
            require(!registered || key.expired() || calls == 1,
                    "a listener hears of the end of its profile");
        }
    };

    unsigned reads() { return modem.counts[ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01].sent; }

    // Each as often as the modem reports it.
    unsigned changesMade() {
        return 2 * modem.counts[ZAP_WDS_CREATE_PROFILE_REQ_V01].succeeded +
               modem.counts[ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01].succeeded +
               modem.counts[ZAP_WDS_DELETE_PROFILE_REQ_V01].succeeded;
    }

    void boot() {
        entries.clear();
        changesBefore = changesMade();
        absorbed = 0;
        refreshing = false;
        ++engine;
        cache.emplace(stepped.loop, static_cast<int>(input.upTo(15)),
                      [this, mine = engine](const std::shared_ptr<ClientRequest>& request) {
                          answer(*request, mine);
                          return nullptr;
                      });
    }

    void answer(const ClientRequest& request, unsigned forEngine) {
        const auto* callback = dynamic_cast<const CallbackRequest*>(&request);
        require(callback && !request.dump().empty(), "keys send nothing but callbacks");
        if (callback->hasReleaseToken()) ++released;
        if (!cache || forEngine != engine || refreshing) return;
        if (callback->hasReleaseToken()) {
            cache->releaseProfile(callback->getReleaseToken());
        } else {
            cache->registerExpirationListener(callback->getExpirationCb(),
                                              callback->getExpirationKey(),
                                              callback->getExpirationToken());
        }
    }

    Key keep(Key key) {
        if (key) {
            ++handedOut;
            keys.push_back(key);
            require(!key->dump().empty(), "a key is dumped");
        }
        return key;
    }

    std::vector<Key> keepAll(const std::list<Key>& found) {
        for (const Key& key : found) keep(key);
        return {found.begin(), found.end()};
    }

    Key drawKey() {
        return keys.empty() || input.rarely(16) ? nullptr : keys[input.upTo(255) % keys.size()];
    }

    // As of the last dump.
    bool isLive(const Key& key, bool withProfile = false) const {
        const auto entry = key ? entries.find(key->getToken()) : entries.end();
        return entry != entries.end() && (entry->second || !withProfile);
    }

    // The tokens of the cache as its dump shows them, each with whether it has a profile.
    void readDump() {
        const std::vector<std::string> lines = cache->dump();
        const auto title = std::find(lines.begin(), lines.end(), "Pending:");
        require(lines.front() == "Cache:" && title != lines.end(), "a dump has its two titles");
        pending = static_cast<unsigned>(lines.end() - title - 1);
        std::map<uint64_t, bool> now;
        uint64_t highest = newestToken;
        for (auto line = lines.begin() + 1; line != title; ++line) {
            char* end = nullptr;
            const uint64_t token = strtoull(line->c_str() + 2, &end, 10);
            require(line->rfind("  ", 0) == 0 && std::string(end).rfind(": ", 0) == 0,
                    "a dump has a line for each entry", *line);
            require(now.emplace(token, std::string(end) != ": null").second,
                    "no token is there twice", *line);
            require(entries.count(token) == 1 || token > newestToken, "no token comes again",
                    *line);
            highest = std::max(highest, token);
        }
        entries = std::move(now);
        newestToken = highest;
    }

    Input& input;
    RogueModem modem;
    SteppedLoop stepped;
    std::optional<ProfileCache> cache;
    unsigned engine = 0;
    bool refreshing = false;
    std::vector<Key> keys;
    std::list<std::shared_ptr<Listener>> listeners;
    unsigned handedOut = 0;
    unsigned released = 0;
    unsigned pending = 0;        // echoes, as the dump shows them
    unsigned absorbed = 0;       // by this cache
    unsigned changesBefore = 0;  // this cache
    // Of profiles whose every key was counted, by token: the reads when it was made. One that was
    // read again is the modem's.
    std::map<uint64_t, unsigned> ownTransient;
    std::map<uint64_t, bool> entries;
    uint64_t newestToken = ProfileCache::generateToken();
};

constexpr void (Phone::*kOperations[])() = {
    &Phone::pass,     &Phone::add,         &Phone::modify,       &Phone::remove,
    &Phone::match,    &Phone::get,         &Phone::filter,       &Phone::filterAll,
    &Phone::dropKey,  &Phone::dropAllKeys, &Phone::listen,       &Phone::refresh,
    &Phone::indicate, &Phone::notify,      &Phone::beginRefresh, &Phone::indicateDirectly,
    &Phone::fail,     &Phone::restart,
};

}  // namespace
}  // namespace zem::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zem::fuzz;
    constexpr int kMostOperations = 64;
    Input input(data, size);
    Phone phone(input);
    for (int i = 0; i < kMostOperations && !input.empty(); ++i) {
        (phone.*input.oneOf(kOperations))();
        phone.check();
    }
    return 0;
}
