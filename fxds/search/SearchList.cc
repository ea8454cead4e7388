#include "fxds/SearchList.h"

#include <dirent.h>

#include <cstring>
#include <memory>

#include "fxds/RegEx.h"

// The list is computed when one of its two texts changes, and otherwise only on
// request: it is a snapshot of the directories. Arguments may be views of our
// own texts and are copied before anything changes.

namespace {
struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
}  // namespace

fxSearchList::fxSearchList(const char* list, const char* expression)
    : regexpText(expression), searchListText(list) {
    recalc();
}

void fxSearchList::searchList(const char* list) { searchCriteria(list, regexpText); }

void fxSearchList::regexp(const char* expression) { searchCriteria(searchListText, expression); }

void fxSearchList::searchCriteria(const char* list, const char* expression) {
    fxStr newList(list);
    fxStr newExpression(expression);
    if (newList == searchListText && newExpression == regexpText) return;
    searchListText = std::move(newList);
    regexpText = std::move(newExpression);
    recalc();
}

void fxSearchList::recalc() {
    resize(0);
    for (unsigned int at = 0; at < searchListText.length();) {
        appendMatches(searchListText.token(at, ':'));
    }
}

void fxSearchList::appendMatches(fxStr directory) {
    const std::unique_ptr<DIR, CloseDirectory> entries(opendir(directory));
    if (entries == nullptr) return;
    directory.append('/');
    const fxRegEx expression(regexpText);
    while (const dirent* entry = readdir(entries.get())) {
        const unsigned int length = static_cast<unsigned int>(std::strlen(entry->d_name));
        int start;
        int end;
        expression.bracketBuffer(entry->d_name, length, start, end);
        if (start != 0 || end != static_cast<int>(length)) continue;
        fxStr name(directory);
        name.append(entry->d_name, length);
        append(name);
    }
}
