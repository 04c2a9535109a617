// SoftModem: a modem in software, for development hosts.
//
// libsoftmodem.so exports the symbols of the ZAP client library, the WDS service and the diagnostic
// channel, so that libzem.so runs in front of it as it runs in front of the device's own. This
// header is the other side: what an engineer, a tool or a test does to the modem.
//
// One modem per process, made on first use and never destroyed, so that clients may be released at
// exit. All operations may be called from any thread; the modem calls clients back on one thread of
// its own and holds no lock meanwhile. A modem begins up, with empty stores and subscription 0
// to 15. A store holds 255 profiles: 3GPP index 1 to 255, 3GPP2 index 0 to 254.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Marks what libsoftmodem.so exports.
#define SOFTMODEM_API __attribute__((visibility("default")))

namespace softmodem {

// The family of profiles, as on the wire.
enum class Tech : uint32_t {
    k3gpp = 0,   // index 1 to 255
    k3gpp2 = 1,  // index 0 to 254
};

// What an indication tells, as on the wire.
enum class Event : uint32_t {
    kCreate = 1,          // there is a new profile
    kDelete,              // a profile has gone
    kModify,              // a profile has changed
    kSubscriptionChange,  // the subscription has another store
    kProfileReady,        // the store may be read
};

// What a field of a profile holds, as it stands on the wire.
using Value = std::variant<uint64_t, std::string>;

// The fields of a profile by name ("apn_name", "pdp_type"). fieldNames() lists them; a name that is
// not in it, or a text where a number belongs, is refused.
using Fields = std::map<std::string, Value, std::less<>>;

// The fields that a profile of that family may have.
SOFTMODEM_API std::vector<std::string> fieldNames(Tech tech);

// The names that a field's values have in texts, besides numbers; empty for most.
SOFTMODEM_API std::vector<std::string> valueNames(std::string_view field);

// The value that a person means: a name, a number (also as 0x...), or a text as it stands. Throws
// std::invalid_argument, which says what is wrong with the field or the value.
SOFTMODEM_API Value parseValue(Tech tech, std::string_view field, std::string_view text);

// A profile in a store, or the changes to one.
struct Profile {
    Tech tech = Tech::k3gpp;  // with the index: which profile
    unsigned index = 0;       // ignored where the modem chooses one
    Fields fields = {};       // those that are set
};

// What the client library's calls return when they fail; zap_error_cb gets kServiceGone.
enum class CallError : int {
    kBadHandle = -1,    // null, released, or of the wrong kind
    kBadArgument = -2,  // a null pointer, or no room for the result
    kServiceGone = -3,  // the modem is down, or was since the client was opened
    kTimedOut = -4,     // no answer within the caller's time-out
    kSendFailed = -5,   // the request could not be sent
    kUndecodable = -6,  // the bytes are no message of that id
};

// The error code of a refused request; its result is then 1.
enum class ErrorCode : uint32_t {
    kNone = 0,            // not refused
    kInternal,            // what a fault says unless told otherwise
    kFull,                // no index is free
    kInvalidIndex,        // there is no such profile
    kInvalidProfileType,  // neither 3GPP nor 3GPP2
    kInvalidArgument,     // a subscription or a field that cannot be
    kMalformedLength,     // a request or a list in it of the wrong size
    kNotBound,            // the client has not named its subscription
    kUnknownMessage,      // there is no such request
};

// What goes wrong with a request, or with the indications that follow it.
enum class FaultKind {
    kRefuse,     // answered with a result and an error code, not carried out
    kTimeOut,    // not carried out; fails after the caller's time-out, at once when asked to hurry
    kSendError,  // the send itself fails, though it is carried out and the response is filled
    kLoseIndication,         // carried out, its indications are not sent
    kRepeatIndication,       // each sent twice
    kDelayIndication,        // kept back until releaseIndications()
    kReorderIndications,     // sent in reverse order
    kUndecodableIndication,  // bytes that the decode function refuses
    kEmptyIndication,        // length 0
    kInvalidIndication,      // decodes, but its field is not marked valid
    kUnterminatedStrings,    // response strings filled to capacity, no end
    kUnknownEnums,           // response enumerations hold values that nobody defined
    kListCount,              // the list response claims `value` entries, whatever it holds
    kGoDown,                 // the modem goes down instead of answering
};

// Applies to `count` requests of that message id, after `skip` others; then it is used up. Faults
// of different kinds may meet in one request; of two of the same kind, the second waits.
struct Fault {
    FaultKind kind;          // what goes wrong
    unsigned messageId = 0;  // 0: any request; 0x00A8: indications that no request has caused
    unsigned count = 1;      // how many it meets
    unsigned skip = 0;       // how many it lets pass before
    // kRefuse: the error code (0: kInternal); kListCount: the count; kUnknownEnums: what the
    // enumerations hold, cut to their width (0: 0xC8C8C8C8).
    uint32_t value = 0;
};

// One request as the modem got it.
struct Request {
    unsigned messageId = 0;      // what it asks for
    std::string name;            // "create profile"
    unsigned subscription = 0;   // the client's, 0 before it has one
    std::vector<uint8_t> bytes;  // as sent, the first 64 KiB
    int sendResult = 0;          // what the send call returned
    uint32_t result = 0;         // as answered: 1 for a refusal
    uint32_t error = 0;          // as answered: an ErrorCode
};

// What has happened since the beginning or the last reset, and what is open now.
struct Counters {
    std::map<unsigned, unsigned> requests;  // by message id
    unsigned requestsTotal = 0;             // of all ids
    unsigned indicationsSent = 0;           // to each client counted on its own
    unsigned openClients = 0;               // handles to the service, not yet released
    unsigned openNotifiers = 0;             // handles that wait for the service, not yet released
    unsigned badHandles = 0;                // calls with a null, released or unknown handle
    bool diagOpen = false;                  // whether the diagnostic channel is
};

// One line that came through the diagnostic channel.
struct DiagLine {
    unsigned line;       // of the source file
    unsigned subsystem;  // as the sender numbers itself
    unsigned mask;       // what importance the channel filters by
    std::string file;    // the sender's source file
    std::string text;    // with its arguments filled in
};

class ModemState;

class SOFTMODEM_API SoftModem {
  public:
    // The modem of the process.
    static SoftModem& instance();

    // Back to the beginning: up, empty stores, no faults, hook, latency, counters or logs;
    // undelivered indications are dropped. Open handles stay open and must register anew; meant for
    // use between two engines.
    void reset();

    // --- Power ---

    // Clients get their error callback, notifiers hear of it, requests fail. A client that is open
    // is of no more use; when it has no error callback by then, it gets its error as soon as it
    // registers one. Nothing happens when the modem is down.
    void goDown();

    // Profiles without the persistent flag are gone, notifiers are called, and clients that
    // register get ProfileReady. Nothing happens when the modem is up.
    void comeUp();

    // Down and up; up alone when the modem is down.
    void restart();

    // Whether the modem answers.
    bool isUp() const;

    // Swaps the stores of two subscriptions, as a user does who swaps SIM cards, and sends
    // SubscriptionChange to the clients bound to either. Throws std::out_of_range.
    void swapSubscriptions(unsigned a, unsigned b);

    // --- The stores, behind the library's back ---
    // Changes are indicated like any other. They work on a modem that is down as well.

    // Takes the lowest free index and returns it; empty when the store is full, there is no such
    // subscription, or a field is refused.
    std::optional<unsigned> createProfile(const Profile& profile, unsigned subscription = 0);

    // Takes the profile's own index; empty also when that is taken or out of range.
    std::optional<unsigned> createProfileAt(const Profile& profile, unsigned subscription = 0);

    // Sets those fields and leaves the others. False when there is no such profile, or a field is
    // refused.
    bool modifyProfile(const Profile& changes, unsigned subscription = 0);

    // False when there is no such profile.
    bool deleteProfile(Tech tech, unsigned index, unsigned subscription = 0);

    // All profiles, 3GPP first, by index.
    std::vector<Profile> profiles(unsigned subscription = 0) const;

    // One profile; empty when there is none.
    std::optional<Profile> profile(Tech tech, unsigned index, unsigned subscription = 0) const;

    // Sends an indication as it stands, to the clients that want it; 0 and unknown events too.
    void indicate(uint32_t tech, unsigned index, uint32_t event, unsigned subscription = 0);

    // Sends raw bytes under any message id to every client.
    void indicateRaw(unsigned messageId, const std::vector<uint8_t>& bytes);

    // --- Faults and time ---

    // Plants a fault for requests to come; a count of 0 plants none.
    void addFault(const Fault& fault);

    // Forgets those that have not been used up.
    void clearFaults();

    // Sends the indications that faults have kept back, in order.
    void releaseIndications();

    // Whether time-outs fail at once; off at first.
    void setHurry(bool hurry);

    // How long each request takes; nothing at first. Longer than the caller's time-out: it fails.
    void setLatency(std::chrono::microseconds perRequest);

    // Called on the requesting thread before a request is looked at; empty: none. It may call this
    // modem. A call of the former hook may still be running when this returns.
    void setRequestHook(std::function<void(const Request&)> hook);

    // Waits until every indication and callback that was due has been delivered and has returned.
    // False when the limit passes first, and at once on the modem's own thread.
    bool waitUntilIdle(std::chrono::milliseconds limit = std::chrono::seconds(10));

    // --- What it was asked ---

    // A copy as of now.
    Counters counters() const;

    // Oldest first, the newest 4096.
    std::vector<Request> requests() const;

    // Forgets requests and counters.
    void clearRequests();

    // Oldest first, the newest 16384.
    std::vector<DiagLine> diagLines() const;

    // --- Files ---
    // A text that a person can read and edit.

    // Replaces the file atomically with the stores of all subscriptions; throws std::runtime_error.
    void save(const std::string& path) const;

    // What save() writes, of those profiles that are wanted; empty: of all.
    std::string storeText(
        const std::function<bool(const Profile&, unsigned subscription)>& wanted = {}) const;

    // Takes the stores from the file and announces them by ProfileReady. Throws std::runtime_error,
    // whose message begins "FILE:LINE: " where a line is at fault; a file that is refused changes
    // nothing.
    void load(const std::string& path);

  private:
    SoftModem();
    ~SoftModem() = delete;

    ModemState& state;
};

// Replaces the file atomically; throws std::runtime_error. A new file is its owner's alone, as
// passwords stand in it.
SOFTMODEM_API void saveStore(const std::string& path, const std::string& text);

// The request field by field, "name=value" each; only fields that are marked valid.
SOFTMODEM_API std::vector<std::string> describe(const Request& request);

// "apn_name=internet", "pdp_type=ipv4v6" and so on, for a stored profile.
SOFTMODEM_API std::vector<std::string> describe(const Profile& profile);

// 0x0027 -> "create profile"; an unknown id gives its number, "0x0999".
SOFTMODEM_API std::string messageName(unsigned messageId);

// The requests that the modem knows, by message id.
SOFTMODEM_API std::map<unsigned, std::string> messageNames();

}  // namespace softmodem
