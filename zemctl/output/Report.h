// Report: what a verb prints for people: steps, aligned tables, and checks that it counts.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "output/Output.h"

namespace zemctl {

class Table {
  public:
    explicit Table(std::vector<std::string> header);

    // As many cells as the header has.
    void row(std::vector<std::string> cells);
    bool empty() const { return rows.size() == 1; }

    void print(const Output& output, size_t indent) const;

  private:
    std::vector<std::vector<std::string>> rows;  // the header first
};

class Report {
  public:
    // Outlives the report.
    explicit Report(const Output& where) : output(where) {}

    // Steps are numbered from here on: they tell one story.
    void number() { numbered = true; }

    // Begins the next step.
    void step(const std::string& title);
    void line(const std::string& text);
    void table(const Table& table);

    // A name and words after it, broken into lines that align behind the name.
    void paragraph(const std::string& name, const std::vector<std::string>& words);

    // States what was to be so, and counts it when it is not; details are printed then only.
    bool check(bool ok, const std::string& statement, const std::vector<std::string>& details = {});

    const Output& where() const { return output; }

    // States how many checks were made, and how many of them failed.
    void countChecks();
    unsigned checksFailed() const { return failures; }
    // Back to that count: what has failed since is accounted for.
    void setChecksFailed(unsigned number) { failures = number; }

  private:
    const Output& output;
    bool numbered = false;
    unsigned steps = 0;
    unsigned checks = 0;
    unsigned failures = 0;
};

}  // namespace zemctl
