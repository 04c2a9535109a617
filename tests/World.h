// World: the library in front of the software modem, and the model of both, through the same steps.
//
// A step is an operation and a seed, from which its arguments are drawn, so that any part of a
// sequence is a sequence too.
#pragma once

#include <zem/Manager.h>
#include <zem/Util.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "PhoneModel.h"
#include "TestPhone.h"

namespace zem::model {

struct Step {
    unsigned operation;
    uint64_t seed;
};
using Steps = std::vector<Step>;

// Numbers that are the same on every machine.
class Dice {
  public:
    explicit Dice(uint64_t seed) : state(seed) {}

    uint64_t next();
    unsigned below(size_t limit) { return static_cast<unsigned>(next() % limit); }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <class Values>
    const auto& pick(const Values& values) {
        return values[below(std::size(values))];
    }

  private:
    uint64_t state;
};

Steps drawSteps(uint64_t seed, size_t count);

// How often something happened that a run must not do without.
using Tally = std::map<std::string, unsigned long>;

class World {
  public:
    explicit World(Tally& tally);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Where library and model differ after the step; empty: nowhere.
    std::string run(const Step& step);
    // Lets all keys go, one by one.
    std::string finish();
    // The last step in words.
    const std::string& lastStep() const { return words; }

  private:
    friend struct Operations;
    struct Seen;

    void settle();
    std::vector<std::string> cacheDump() const;
    void compare(const char* what, bool expected, bool actual);
    void compare(const char* what, const std::string& expected, const std::string& actual);
    void compare(const char* what, std::vector<std::string> expected,
                 std::vector<std::string> actual);
    void compareAll();

    MaybeKey drawKey(Dice& dice, std::shared_ptr<IProfileKey>& key);
    void take(const char* what, const MaybeKey& expected, const std::shared_ptr<IProfileKey>& key);
    void dropKey(size_t position, bool elsewhere);
    void init(unsigned instance);

    SoftModem& modem = SoftModem::instance();
    Manager& manager = Manager::getInstance();
    Util util;
    PhoneModel model;
    std::vector<std::pair<Key, std::shared_ptr<IProfileKey>>> keys;
    const std::shared_ptr<Seen> seen;
    unsigned nextListener = 0;
    size_t checked = 0;
    Tally& tally;
    std::string words;
    std::string differences;
};

}  // namespace zem::model
