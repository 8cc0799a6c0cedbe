// The parts of the option table: options that several commands have, and the commands by subject.

#ifndef LUM_LUMCURL_OPTION_GROUPS_H
#define LUM_LUMCURL_OPTION_GROUPS_H

#include <CLI/CLI.hpp>
#include <string>

#include "Options.h"

// The headings under which --help lists the commands.
constexpr char kHttp[] = "HTTP";
constexpr char kService[] = "Service back end";
constexpr char kUploads[] = "Uploads to object storage";
constexpr char kCentre[] = "Configuration centre";
constexpr char kTool[] = "Tool";

// The heading of options that say by which way a request leaves.
constexpr char kRouteOptions[] = "Route";

// A command with the options that each has.
CLI::App* AddCommand(CLI::App& app, Options& options, const char* name, const char* group,
                     const char* about, const std::string& notes, const char* example);

// One of the service client, which verifies no server: the notes end in that.
CLI::App* AddServiceCommand(CLI::App& app, Options& options, const char* name, const char* group,
                            const char* about, const std::string& notes, const char* example);

// An option that takes a value, which help calls `value`.
template <typename T>
CLI::Option* AddValue(CLI::App* command, const char* name, T& target, const char* value,
                      const std::string& help) {
  return command->add_option(name, target, help)->type_name(value);
}

// An operand, which must be given.
template <typename T>
CLI::Option* AddOperand(CLI::App* command, const char* name, T& target, const std::string& help) {
  return command->add_option(name, target, help)->type_name("")->required();
}

void AddUrl(CLI::App* command, Options& options);
CLI::Option* AddHeader(CLI::App* command, Options& options, const std::string& help);
void AddBody(CLI::App* command, Options& options, const std::string& what);

// A request document may hold a password: it never comes from the command line.
void AddRequestDocument(CLI::App* command, Options& options);

void AddToken(CLI::App* command, Options& options);

// TLS of get and post: certificates and switch belong together.
void AddSsl(CLI::App* command, Options& options);

// The settings that every request of the service client reads.
void AddServiceSettings(CLI::App* command, Options& options);

void AddTimeout(CLI::App* command, Options& options, const std::string& help);

// What values are accepted. Each check returns "" or what is wrong.
std::string CheckUrl(const std::string& url);

// The library adds the query itself.
std::string CheckUrlWithoutQuery(const std::string& url);

// Goes into a query, or a path, as it stands.
std::string CheckQueryValue(const std::string& text);
std::string CheckPathPart(const std::string& text);

// HOST or HOST:PORT.
std::string CheckServer(const std::string& server);

// Becomes a header line, or a line of a list.
std::string CheckLine(const std::string& text);

// A numeric IPv4 or IPv6 address.
std::string CheckAddress(const std::string& text);

std::string CheckMac(const std::string& text);

// The beginning of a shell variable's name.
std::string CheckVariablePrefix(const std::string& text);

// A time limit that libcurl takes.
std::string CheckSeconds(const std::string& text);

// Rewrites a rate such as 500K as bytes per second, as far as the library takes it.
std::string ToBytesPerSecond(std::string& text);

// Every command that asks something of a server.
void AddCommands(CLI::App& app, Options& options);

#endif  // LUM_LUMCURL_OPTION_GROUPS_H
