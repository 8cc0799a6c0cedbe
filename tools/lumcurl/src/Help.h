// How --help looks: names in one column, descriptions wrapped beside them.

#ifndef LUM_LUMCURL_HELP_H
#define LUM_LUMCURL_HELP_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// What --help of a command, or of the whole, prints.
std::string Help(const CLI::App* app);

// The options that help shows, and the operands.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app);
std::vector<const CLI::Option*> OperandsOf(const CLI::App& app);

// What an option's value, or an operand, is called, "FILE"; "" for a switch.
std::string ValueName(const CLI::Option* option);

// "-H,--header LINE", or "URL" for an operand.
std::string OptionSynopsis(const CLI::Option* option);

// What it is for, and whether it must be given.
std::string Description(const CLI::Option* option);

// "lumcurl get [OPTIONS] URL".
std::string CommandSynopsis(const CLI::App* command);

// `text` in lines of at most `width` columns, each after the first indented; lines that begin with
// a blank stand as they are.
std::string Wrap(const std::string& text, std::size_t width, std::size_t indent);

// The part of a command's footer before its example, and the example's lines.
constexpr char kExampleMark[] = "\n\nExample:\n";
struct Footer {
  std::string notes;
  std::string example;
};
Footer SplitFooter(const std::string& footer);

#endif  // LUM_LUMCURL_HELP_H
