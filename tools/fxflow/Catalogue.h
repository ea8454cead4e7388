// The classes of elements, in the form for users.
#ifndef FXFLOW_CATALOGUE_H
#define FXFLOW_CATALOGUE_H

#include <string>
#include <vector>

/// Prints the name and the sentence of each class.
void listClasses();

/// Prints the properties and channels of the classes. Returns the status to exit with.
int describeClasses(const std::vector<std::string>& names);

#endif
