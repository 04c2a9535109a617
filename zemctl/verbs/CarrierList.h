// CarrierList: access points from a file in Android's apns-conf.xml format, as profile settings.
//
// Plain values and no calls into the library: no thread rule.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <zem/ProfileParams.h>

namespace zemctl {

// An operator: mobile country code and network code, kept as digits because zeros count.
struct Plmn {
    std::string mcc;  // 3 digits
    std::string mnc;  // 2 or 3 digits

    // Five or six digits; empty for anything else.
    static std::optional<Plmn> parse(std::string_view digits);

    std::string digits() const { return mcc + mnc; }
};

// The file cannot be used at all; what() is one line that begins with its name.
class CarrierFileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

enum class SkipReason {
    kNotAnApn,       // an element of another name
    kNoApnName,      // nothing to ask the network for
    kLongApnName,    // more than a modem stores
    kNoKnownType,    // types, but none that zem has
    kSameAsEarlier,  // the settings of an entry before it
};

// How the summary names a reason.
const char* skipReasonText(SkipReason reason);

struct CarrierEntry {
    unsigned line;
    std::string carrier;
    zem::ProfileParams params;
};

struct SkippedEntry {
    unsigned line;
    std::string carrier;
    SkipReason reason;
    std::string detail;
};

struct CarrierWarning {
    unsigned line;
    std::string text;
};

// One operator's entries; each is either usable or skipped.
struct CarrierList {
    size_t entries = 0;
    std::vector<CarrierEntry> usable;
    std::vector<SkippedEntry> skipped;
    std::vector<CarrierWarning> warnings;  // values that were left out
};

// A parsed file, from which any number of operators can be taken.
class CarrierFile {
  public:
    // Both throw CarrierFileError; parse uses name in messages only.
    static CarrierFile read(const std::string& path);
    static CarrierFile parse(std::string text, const std::string& name);

    ~CarrierFile();
    CarrierFile(CarrierFile&&) noexcept;
    CarrierFile& operator=(CarrierFile&&) noexcept;

    // Elements of the file, whosever they are.
    size_t entries() const;

    // Each once, in order of appearance.
    std::vector<Plmn> operators() const;

    // Lines of the entries that name no valid operator, and so belong to none.
    std::vector<unsigned> strayLines() const;

    // Empty when the operator is not in the file.
    CarrierList select(const Plmn& plmn) const;

  private:
    struct Document;
    explicit CarrierFile(std::unique_ptr<Document> document);

    std::unique_ptr<Document> document;
};

}  // namespace zemctl
