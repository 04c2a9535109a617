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

// Makes every line be formatted.
class Writer : public LogWriter {
  public:
    void write(LogLevel, std::string, std::string message) override {
        require(message.size() <= kLongestLine, "a line is cut");
    }
    int convertPrio(LogLevel) override { return 0; }
};

class Phone {
  public:
    explicit Phone(Input& choices) : input(choices), modem(choices) { boot(); }

    ~Phone() {
        if (input.flag()) keys.clear();
        cache.reset();
        keys.clear();
        require(released == handedOut, "every key is given back once");
    }

    void add() {
        const AddProfileParams params(drawRecord<ProfileParams>(input), input.flag(),
                                      TechType(input.rarely(16) ? input.small() : input.flag()),
                                      input.flag());
        const unsigned before = modem.counts[ZAP_WDS_CREATE_PROFILE_REQ_V01].succeeded;
        const Key key = keep(cache->add(params));
        require(
            (key != nullptr) == (modem.counts[ZAP_WDS_CREATE_PROFILE_REQ_V01].succeeded > before),
            "a profile that the modem has made has a key, and no other");
        require(!key || key->getTechType() == params.getTechType(), "a key knows its technology");
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
        const auto key = keys.begin() + static_cast<ptrdiff_t>(input.upTo(255) % keys.size());
        const Key last = std::move(*key);
        keys.erase(key);
    }

    void dropAllKeys() { keys.clear(); }

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
        const unsigned reads = modem.counts[ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01].sent;
        require(cache->refresh(), "a refresh always answers");
        readDump();
        require(entries.size() == modem.counts[ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01].sent - reads,
                "every listed profile is entered");
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
            require(++passes < kMostPasses, "no indication is forgotten");
        } while (!modem.allDecoded());
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

    void boot() {
        entries.clear();
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
        const auto pending = std::find(lines.begin(), lines.end(), "Pending:");
        require(lines.front() == "Cache:" && pending != lines.end(), "a dump has its two titles");
        std::map<uint64_t, bool> now;
        uint64_t highest = newestToken;
        for (auto line = lines.begin() + 1; line != pending; ++line) {
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
    zem::LogWrapper::getInstance().setLogWriter(std::make_unique<Writer>());
    {
        Input input(data, size);
        Phone phone(input);
        for (int i = 0; i < kMostOperations && !input.empty(); ++i) {
            (phone.*input.oneOf(kOperations))();
            phone.check();
        }
    }
    zem::LogWrapper::getInstance().setLogWriter(nullptr);
    return 0;
}
