// The files in a list of directories whose names match an expression.
#ifndef FXDS_SEARCHLIST_H
#define FXDS_SEARCHLIST_H

#include "fxds/Str.h"
#include "fxds/StrArray.h"

/// The full names of all files, in directories that are listed separated by
/// `:`, whose names match a regular expression from end to end. The names of a
/// directory are found in the order in which the system delivers them, `.` and
/// `..` among them, and directories in the order of the list.
///
/// A name is taken when the first match that a search finds spans it: `a|ab`
/// does not take ab, as its first alternative already matches. Directories that
/// cannot be read contribute nothing, and so does a faulty expression. The array
/// shows the directories as they were when it was computed.
class FX_API fxSearchList : public fxStrArray {
public:
    /// Computes the list, unless `searchList` is empty. Null is the empty text.
    fxSearchList(const char* searchList, const char* regexp);
    fxSearchList(const fxSearchList&) = default;
    fxSearchList& operator=(const fxSearchList&) = default;

    ///@{
    /// Views of the two texts.
    const char* searchList() const { return searchListText; }
    const char* regexp() const { return regexpText; }
    ///@}

    ///@{
    /// These compute the list again when the texts differ from the present ones.
    void searchList(const char* list);
    void regexp(const char* expression);
    ///@}
    /// Sets both and computes the list at most once.
    void searchCriteria(const char* list, const char* expression);

    /// Reads the directories again.
    void recalc();

private:
    void appendMatches(fxStr directory);

    fxStr regexpText;
    fxStr searchListText;
};

#endif
