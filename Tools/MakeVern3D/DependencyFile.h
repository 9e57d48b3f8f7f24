// The dependency file of -depfile: for each converted input one Make rule, its output file
// followed by every file its conversion read, in the syntax compilers write for -MD -MF, which
// Make reads (include) and Ninja too (deps = gcc). Names stand as the program named the files it
// opened: relative names stay relative, a vertex file is its folder joined with its name.
//
// - A space becomes "\ " (backslashes before it doubled), "#" "\#", ":" "\:" and "$" "$$": both
//   tools read these back. A name that one of them would read as something else is not written:
//   control characters, " & ' ( ) * ; < = > ? ^ ` |, a backslash before "#" or ":" or at the end,
//   ":" at the end, and "%" in an output name (Make would take the rule for a pattern).
// - The file is written under a temporary name and renamed over its own (FileStream's
//   ReplaceOnCommit): complete or not at all. Inputs that failed get no rule.
#pragma once

#include <string>
#include <vector>

// `name` as it stands in a rule, appended to `rule`; false (nothing appended) when Make or Ninja
// could not read it back.
bool AppendMakeName(std::string& rule, const std::string& name, bool isOutput);

class DependencyFile {
public:
    // The rule of an input whose conversion succeeded; `read`: the other files it opened, in the
    // order opened (a file opened again is listed once).
    void AddRule(const std::string& output, const std::string& input, const std::vector<std::string>& read);
    // Writes every rule added to `path`. On failure the message is printed (a name that cannot be
    // written, or the file that cannot be), nothing is left at `path` but what was there, and the
    // result is false.
    bool Write(const std::string& path) const;

private:
    std::vector<std::vector<std::string>> rules;  // output, input, then the other files read
};
