// SPDX-License-Identifier: MIT
// The findings of many cases, grouped by kind.
#pragma once

#include <map>
#include <string>

namespace vesk::testing {

/// Counts findings and keeps the first of each kind.
class Findings {
public:
    void add(const std::string& kind, const std::string& details) {
        Finding& finding = byKind_[kind];
        if (finding.count++ == 0) finding.first = details;
    }

    bool empty() const { return byKind_.empty(); }

    /// The number of findings of each kind, with the first case of it.
    std::string text() const {
        std::string lines;
        for (const auto& [kind, finding] : byKind_)
            lines += std::to_string(finding.count) + " x " + kind + "\n" + finding.first + "\n";
        return lines;
    }

private:
    struct Finding {
        int count = 0;
        std::string first;
    };
    std::map<std::string, Finding> byKind_;
};

}  // namespace vesk::testing
