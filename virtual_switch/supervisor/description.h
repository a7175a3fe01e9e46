// SPDX-License-Identifier: Apache-2.0
// The file that says which programs are started: lines of a key, a blank, and a value, which goes on to the
// end of its line and is taken as it is, so that any path can be told. Empty lines and those that begin
// with # say nothing.
//
//   program NAME     begins the description of a program: how sentences call it
//   run WORD         a word of its command line, the first of which is a file to execute, or is looked for
//                    in PATH
//   attend WORD      a word of the command line of its attendant, likewise; none where it has none
//   tells NUMBER     the descriptor, 3 or more, on which the attendant tells that the program may be started,
//                    or without attendant the program that it serves; see contract/supervisor.h
//   output NUMBER    a descriptor that the supervisor was started with: where the program's standard output
//                    and standard error go; without it, where the supervisor's do
//   log FILE         where that is to be read, for sentences about the program
#ifndef SUPERVISOR_DESCRIPTION_H
#define SUPERVISOR_DESCRIPTION_H

#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace supervisor {

// Why the supervisor cannot do what it was started for, in one sentence without the full stop.
class Problem : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One program. Attendants are started before each start of their program, say when it may be started, and
// end when it serves.
struct Program {
    std::string name;
    std::vector<std::string> words;
    std::vector<std::string> attendant; // empty: none
    std::optional<int> tells;
    std::optional<int> output;
    std::string log; // empty: nowhere
};

// Reads a description, whose name in sentences is `place`: its programs in their order, one at least. Throws
// Problem, which names the line.
std::vector<Program> read_description(std::istream &text, const std::string &place);

// The same of a file.
std::vector<Program> read_description_file(const std::string &path);

} // namespace supervisor

#endif
