// Expressions as texts: what they look like, and what is known of their matches.
#ifndef FXGREP_DIALECT_H
#define FXGREP_DIALECT_H

#include <string>
#include <vector>

/// Whether the pattern has an operator in it.
bool looksLikeExpression(const std::string& text);

/// Tells of what other dialects mean something by and this one does not. Where the
/// user has not said that it is an expression, so it does of the operators of basic
/// expressions, which mean themselves here.
bool isOfThisDialect(const std::string& text, bool isGuessed);

/// An expression that matches exactly this text.
std::string quoted(const std::string& text);

/// The same expression for letters of either case, A to Z.
std::string withoutCase(const std::string& text);

/// Texts of which every match contains one; none when nothing is known. Whether a search
/// for them is worth it is for the caller to see. Requires: the expression compiles.
std::vector<std::string> requiredTexts(const std::string& expression, bool ignoresCase);

#endif
