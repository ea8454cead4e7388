#include "fxds/detail/Suggestion.h"

#include <algorithm>
#include <numeric>

#include "fxds/Converter.h"

namespace {

constexpr size_t longestWanted = 256;

// The number of insertions, removals and exchanges of letters between the two.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t exchanged = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, diagonal + 1, exchanged});
        }
    }
    return row.back();
}

// The first of the nearest names, or null if none is near.
const std::string_view* nearest(std::string_view wanted,
                                const std::vector<std::string_view>& known) {
    if (wanted.size() > longestWanted) return nullptr;
    size_t limit = 2 + wanted.size() / 3;
    const std::string_view* found = nullptr;
    for (const std::string_view& each : known) {
        // Names whose lengths differ by the limit are no nearer.
        if (each.size() >= wanted.size() + limit || wanted.size() >= each.size() + limit) continue;
        const size_t apart = distance(wanted, each);
        if (apart >= limit) continue;
        limit = apart;
        found = &each;
    }
    return found;
}

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

}  // namespace

std::string fxDetail::suggestion(std::string_view wanted,
                                 const std::vector<std::string_view>& known, const char* has,
                                 size_t most) {
    if (known.empty()) return ", nor any other";
    if (const std::string_view* const near = nearest(wanted, known); near != nullptr) {
        return "; did you mean " + quoted(*near) + '?';
    }
    const size_t shown = std::min(most, known.size());
    std::string text = std::string("; ") + has;
    for (size_t i = 0; i < shown; ++i) (text += i == 0 ? " " : ", ") += quoted(known[i]);
    if (shown < known.size()) text += " and " + std::to_string(known.size() - shown) + " more";
    return text;
}

std::string fxDetail::unlikeTypes(unsigned short from, unsigned short to) {
    if (from == to || to == fxDT_void || fxConverter::converts(from, to)) return "";
    std::string text = "no converter leads from ";
    (text += fxDataTypeName(from)) += " to ";
    text += fxDataTypeName(to);
    if (fx_theConverters == nullptr) return text += "; there are none before fxInitializeToolkit()";
    if (fxConverter::hasMoreConverters) return text;
    return text += " (fxConverter::createMoreConverters() adds some)";
}
