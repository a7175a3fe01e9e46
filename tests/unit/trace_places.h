// SPDX-License-Identifier: Apache-2.0
// Where the module's trace texts stand in its sources.
#ifndef TRACE_PLACES_H
#define TRACE_PLACES_H

#include <string>

// Whether a trace text that carries a source line, as "function(line)", carries the line
// where it stands. A file of the module that knows the function must have a statement
// there with the text's format, or with a call that hands function and line to somebody who
// traces for it. True for a text that carries no line, and for one that the history has cut.
bool stands_where_it_says(const std::string &text);

#endif
