// Expressions as texts: their notation, and facts about their matches.
#ifndef FXGREP_DIALECT_H
#define FXGREP_DIALECT_H

#include <string>
#include <vector>

#include "Neighbours.h"

/// Whether the pattern has an operator in it.
bool looksLikeExpression(const std::string& text);

/// Reports notations that have a meaning in other dialects and none in this one; if the
/// user has not declared an expression, also the operators of basic expressions, which are
/// ordinary characters here.
bool isOfThisDialect(const std::string& text, bool isGuessed);

/// An expression that matches exactly this text.
std::string quoted(const std::string& text);

/// The same expression for letters of either case, A to Z.
std::string withoutCase(const std::string& text);

/// Texts of which every match contains one; none if none are known. The caller decides
/// whether a search for them pays. Requires: the expression compiles.
/// Sets `areAll` if there is a match wherever one of them is.
std::vector<std::string> requiredTexts(const std::string& expression, bool ignoresCase,
                                       bool& areAll);

/// The rarest known neighbours of which every match has some. Requires: the expression
/// compiles.
NeighbourSets requiredNeighbours(const std::string& expression);

#endif
