// The choice of the files to search.
#ifndef FXGREP_FILES_H
#define FXGREP_FILES_H

#include "Crew.h"
#include "Options.h"

/// Searches the files that the options name: a path, files and folders, or
/// standard input.
void searchFiles(Crew& crew, const Options& options);

/// Whether there may be several files, none of them standard input.
bool areSeveral(const Options& options);

#endif
