// Random sequences of everything that callers and modem may do, against a model of both.
//
// ZEM_MODEL_STEPS and ZEM_MODEL_SEED set how many steps and from which seed; a run is the same each
// time. A sequence that fails is cut down to the steps that it takes.

#include <cstdio>
#include <cstdlib>

#include "World.h"

namespace zem::model {
namespace {

constexpr size_t kStepsOfSequence = 200;

unsigned long fromEnvironment(const char* name, unsigned long otherwise) {
    const char* const text = getenv(name);
    return text ? strtoul(text, nullptr, 10) : otherwise;
}

struct Failure {
    size_t steps;  // the last of which shows it
    std::string text;
};

std::optional<Failure> play(const Steps& steps, Tally& tally) {
    World world(tally);
    std::string words;
    size_t done = 0;
    const auto fail = [&](const std::string& differences) {
        return Failure{done, words + "\nAfter the last of these steps\n" + differences};
    };
    for (const Step& step : steps) {
        std::string differences = world.run(step);
        words += "\n  " + world.lastStep();
        ++done;
        if (!differences.empty()) return fail(differences);
    }
    std::string differences = world.finish();
    words += "\n  " + world.lastStep();
    if (!differences.empty()) return fail(differences);
    return std::nullopt;
}

// Leaves out what the failure does not need: halves first, in the end single steps.
Failure minimise(Steps steps, Failure failure) {
    Tally unused;
    steps.resize(failure.steps);
    for (size_t piece = steps.size() / 2; piece > 0; piece /= 2) {
        for (size_t from = 0; from + piece <= steps.size();) {
            Steps fewer = steps;
            const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(from);
            fewer.erase(begin, begin + static_cast<std::ptrdiff_t>(piece));
            if (auto still = play(fewer, unused)) {
                fewer.resize(still->steps);
                steps = std::move(fewer);
                failure = std::move(*still);
            } else {
                from += piece;
            }
        }
    }
    return failure;
}

TEST(ModelTest, LibraryAndModelAgreeAfterEveryStepOfRandomSequences) {
    const unsigned long wanted = fromEnvironment("ZEM_MODEL_STEPS", 20000);
    const unsigned long seed = fromEnvironment("ZEM_MODEL_SEED", 1);
    const bool isLong = wanted > 20000;
    Tally tally;
    for (unsigned long done = 0; done < wanted; done += kStepsOfSequence) {
        if (isLong && done % 100000 == 0) fprintf(stderr, "%lu steps\n", done);
        const Steps steps = drawSteps(seed + done / kStepsOfSequence, kStepsOfSequence);
        if (const auto failure = play(steps, tally)) {
            const Failure least = minimise(steps, *failure);
            FAIL() << "seed " << seed + done / kStepsOfSequence << ", " << least.steps
                   << " steps:" << least.text;
        }
    }
    for (const auto& [what, count] : tally) {
        if (wanted >= 5000) {
            EXPECT_GT(count, 0u) << what;
        }
        if (isLong) printf("%10lu %s\n", count, what.c_str());
    }
}

}  // namespace
}  // namespace zem::model
