// SPDX-License-Identifier: MIT
#include "Options.h"

#include "ExitStatus.h"
#include "ValueText.h"

#include "morvellacinto/Version.h"
#include "morvellacinto/audience/Version.h"

#include <CLI/CLI.hpp>

namespace morvellacinto::host {
namespace {

// Empty text would be 0.
std::string refuseEmpty(const std::string& text) { return text.empty() ? "is empty" : ""; }

std::string refuseFile(const std::string& path) {
    std::error_code reason;
    const auto found = std::filesystem::status(path, reason);
    return reason == std::errc::not_a_directory ||
                   (std::filesystem::exists(found) && !std::filesystem::is_directory(found))
               ? "\"" + path + "\" is no folder"
               : "";
}

class OptionReader {
public:
    OptionReader() {
        app_.require_subcommand(0, 1); // so that an unknown one is named
        app_.fallthrough();            // options of the program after the command
        app_.set_help_flag();          // the commands would show it again
        app_.set_version_flag("--version", [] {
            return MorvellacintoVersionString + valueText(MorvellacintoVersionNumber) +
                   "\nmorvellacinto " + versionText();
        });
        addGlobalOptions();
        addAudienceCommands();
        addSettingsCommands();
        addOtherCommands();
        app_.set_help_all_flag("-h,--help", "what this program takes");
        app_.footer("Exit status:\n"
                    "  0  done, or the completion brought an answer\n"
                    "  1  the completion brought an error, or output or a setting was not written\n"
                    "  2  wrong usage, an unreadable file, or bad JSON in an argument or file\n"
                    "  3  no completion within --wait\n"
                    "  4  nothing was found");
    }

    std::optional<Options> read(int count, char** arguments) {
        if (!tools::parse(app_, count, arguments)) {
            return std::nullopt;
        }
        if (app_.get_subcommands().empty()) {
            throw UsageError("a command is required; --help lists them");
        }
        return options_;
    }

private:
    void addGlobalOptions() {
        app_.add_option_function<std::string>(
                "--token",
                [this](const std::string& text) {
                    options_.token = Uuid::parse(text);
                    if (!options_.token) {
                        throw UsageError("--token: \"" + text + "\" is not a UUID");
                    }
                },
                "API token")
            ->type_name("UUID");
        app_.add_option("--decimals", options_.decimals, "decimals kept of coordinates")
            ->check(refuseEmpty)
            ->type_name("N");
        app_.add_option("--track-id", options_.trackId, "stands in for the device's identifiers")
            ->type_name("TEXT");
        app_.add_flag("--ask-tracking", options_.askTracking, "ask for permission to track first");
        app_.add_option("--bundle", options_.bundle, "bundle identifier that the device reports")
            ->type_name("ID");
        app_.add_option("--service-url", options_.serviceUrl, "base URL to use from now on")
            ->type_name("URL");
        app_.add_option("--ca-file", options_.caFiles, "one more trust anchor")
            ->allow_extra_args(false)
            ->type_name("PEM");
        app_.add_option("--data-dir", options_.dataDirectory, "where the settings live")
            ->check(refuseFile)
            ->type_name("DIR");
        app_.add_option("--device", options_.device, "\"native\", or the file of a scripted phone")
            ->type_name("FILE");
        app_.add_option_function<double>(
                "--wait",
                [this](double seconds) {
                    if (!(seconds >= 0 && seconds <= 86400)) { // also what is not a number
                        throw UsageError("--wait: " + std::to_string(seconds) +
                                         " is not from 0 to 86400 seconds");
                    }
                    options_.wait = std::chrono::duration<double>(seconds);
                },
                "how long to wait for a completion")
            ->check(refuseEmpty)
            ->type_name("SECONDS");
        app_.add_option("--times", options_.times, "how often to run the command")
            ->check(CLI::Range(1, 1'000'000));
        app_.add_flag("--verbose", options_.isVerbose,
                      "show each step of the work as JSON on standard error");
        app_.add_option("--trace", options_.traceFile,
                        "write the steps to a file for a trace viewer")
            ->type_name("FILE");
        app_.add_flag("--send-asked", options_.sendAsked,
                      "while consent is \"ask\", send what is asked about instead of refusing it");
    }

    CLI::App* add(CLI::App& parent, const char* name, const char* description, Command command) {
        CLI::App* added = parent.add_subcommand(name, description);
        added->callback([this, command] { options_.command = command; });
        return added;
    }

    void addAudienceCommands() {
        add(app_, "tags", "fetch geo tags", Command::tags);
        CLI::App* collect = add(app_, "collect", "upload a payload", Command::collect);
        collect->add_flag("--force", options_.force, "upload whatever is cached");
        CLI::App* preview = add(app_, "preview", "show what collect would send", Command::preview);
        for (CLI::App* command : {collect, preview}) {
            command
                ->add_option("--payload", options_.file,
                             "file of a JSON object to upload, \"-\" for standard input")
                ->type_name("FILE");
        }
        CLI::App* cached = add(app_, "cached", "show the cached answer", Command::cached);
        cached->add_option("member", options_.member)
            ->required()
            ->check(CLI::IsMember({"tags", "mapping"}));
        CLI::App* query = add(app_, "query", "make a query string", Command::query);
        query
            ->add_option("file", options_.file,
                         "file of a JSON object of string arrays, \"-\" for standard input")
            ->type_name("FILE");
        add(app_, "payload", "show the base payload", Command::payload);
        add(app_, "url", "show the base URL", Command::url)
            ->add_flag("--reset", options_.isReset, "first forget the one that was stored");
        add(app_, "consent", "show or set whether requests may leave", Command::consent)
            ->add_option("decision", options_.consent)
            ->check(CLI::IsMember({"allow", "withhold", "ask"}));
        add(app_, "erase", "erase what the library has stored", Command::erase);
    }

    void addSettingsCommands() {
        CLI::App& settings = *app_.add_subcommand("settings", "look at and change the settings");
        settings.require_subcommand(1);
        add(settings, "list", "show all", Command::settingsList);
        const auto withKey = [&](const char* name, const char* description, Command command) {
            CLI::App* added = add(settings, name, description, command);
            added->add_option("key", options_.key)->required();
            return added;
        };
        withKey("get", "show one", Command::settingsGet);
        withKey("set", "store JSON", Command::settingsSet)
            ->add_option("json", options_.json)
            ->required();
        withKey("set-date", "store a date", Command::settingsSetDate)
            ->add_option("seconds", options_.seconds, "relative to now")
            ->required()
            ->check(refuseEmpty);
        withKey("remove", "remove one", Command::settingsRemove);
    }

    void addOtherCommands() {
        CLI::App* round = add(app_, "round", "round to decimals", Command::round);
        round->add_option("value", options_.value)->required()->check(refuseEmpty);
        round
            ->add_option_function<std::int64_t>(
                "n", [this](std::int64_t n) { options_.count = static_cast<std::uint32_t>(n); })
            ->required()
            ->check(CLI::Range(std::int64_t{INT32_MIN}, std::int64_t{UINT32_MAX}));
        CLI::App* request = add(app_, "request", "make a request", Command::request);
        request->add_option("method", options_.method)
            ->required()
            ->check(CLI::IsMember({"get", "post"}));
        request->add_option("url", options_.url)->required();
        request
            ->add_option("--payload", options_.file,
                         "file of a JSON object or array to post, \"-\" for standard input")
            ->type_name("FILE");
    }

    CLI::App app_{"A host of the audience service on the command line", "morvellacinto"};
    Options options_;
};

} // namespace

std::optional<Options> readOptions(int count, char** arguments) {
    return OptionReader().read(count, arguments);
}

} // namespace morvellacinto::host
