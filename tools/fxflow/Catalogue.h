// The classes of elements, as the user sees them.
#ifndef FXFLOW_CATALOGUE_H
#define FXFLOW_CATALOGUE_H

#include <string>
#include <vector>

/// Prints the name and the sentence of each class.
void listClasses();

/// Prints what the classes have to set and to connect. Returns the status to exit with.
int describeClasses(const std::vector<std::string>& names);

#endif
