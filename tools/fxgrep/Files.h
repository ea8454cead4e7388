// Which files are searched.
#ifndef FXGREP_FILES_H
#define FXGREP_FILES_H

#include "Grep.h"
#include "Options.h"

/// Searches what the options name: a path, files and folders, or standard input.
void searchFiles(Grep& grep, const Options& options);

#endif
