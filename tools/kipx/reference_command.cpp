// reference_command.cpp - kipx reference: the manual pages and the completion of shells, from the
// options that the commands declare. The build runs it; --help does not list it.
#include "command.h"
#include "failure.h"
#include "image/output.h"
#include "options.h"

#include <filesystem>
#include <memory>

namespace {

std::vector<const CLI::App *> commands_of(const CLI::App &app) {
    std::vector<const CLI::App *> out;
    for (const CLI::App *command : app.get_subcommands({}))
        if (!command->get_group().empty()) out.push_back(command);
    return out;
}

std::vector<const CLI::Option *> options_of(const CLI::App &app, bool positional) {
    return app.get_options([positional](const CLI::Option *option) {
        return option->get_positional() == positional && !option->get_group().empty();
    });
}

// "-o", "--output" and so on.
std::vector<std::string> names_of(const CLI::Option &option) {
    std::vector<std::string> out;
    for (const std::string &name : option.get_snames()) out.push_back(fmt::format("-{}", name));
    for (const std::string &name : option.get_lnames()) out.push_back(fmt::format("--{}", name));
    return out;
}

bool takes_value(const CLI::Option &option) { return option.get_items_expected_max() > 0; }

// The words that a value is one of, or none.
std::vector<std::string> words_of(const CLI::Option &option) {
    const std::string form = option.get_type_name();
    return form.find('|') == std::string::npos ? std::vector<std::string>()
                                               : CLI::detail::split(form, '|');
}

enum class Value { none, words, file, folder, other };

Value value_of(const CLI::Option &option) {
    const std::string form = option.get_type_name();
    if (!takes_value(option)) return Value::none;
    if (!words_of(option).empty()) return Value::words;
    if (form == "DIR") return Value::folder;
    return form == "FILE" || form == "OUT" || form == "LABELS.tif" ? Value::file : Value::other;
}

// Text as troff takes it.
std::string roff(const std::string &text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\' || c == '-') out += '\\';
        out += c;
        if (c == '\n') out += ".br\n";
    }
    return out;
}

std::string option_roff(const CLI::Option &option) {
    std::string out = ".TP\n";
    std::string names;
    for (const std::string &name : names_of(option)) names += (names.empty() ? "" : ", ") + name;
    if (option.get_positional()) names = option.get_name();
    out += fmt::format(".B {}", roff(names));
    if (takes_value(option) && !option.get_positional())
        out += fmt::format(" \\fI{}\\fR", roff(option.get_type_name()));
    out += fmt::format("\n{}.", roff(option.get_description()));
    if (!option.get_default_str().empty())
        out += fmt::format(" Default: {}.", roff(option.get_default_str()));
    return out + "\n";
}

std::string man_page(const CLI::App &app, const CLI::App *command) {
    const std::string name = command ? fmt::format("kipx-{}", command->get_name()) : "kipx";
    const CLI::App &shown = command ? *command : app;
    std::string out =
        fmt::format(".TH {} 1 \"\" \"Kipx {}\" \"Kipx\"\n.SH NAME\n{} \\- {}\n.SH SYNOPSIS\n", name,
                    KIPX_VERSION, name, roff(shown.get_description()));
    out += command ? fmt::format(".B kipx {}", command->get_name()) : ".B kipx\nCOMMAND";
    for (const CLI::Option *option : options_of(shown, true)) {
        const std::string many = option->get_items_expected_max() > 1 ? "..." : "";
        const std::string word = option->get_name() + many;
        out += fmt::format("\n{}", option->get_required() ? word : fmt::format("[{}]", word));
    }
    out += "\n[OPTIONS]\n";
    if (!command) {
        out += ".SH COMMANDS\n";
        for (const CLI::App *known : commands_of(app))
            out += fmt::format(".TP\n.BR kipx\\-{0} (1)\n{1}.\n", known->get_name(),
                               roff(known->get_description()));
    }
    out += ".SH OPTIONS\n";
    for (const bool positional : {true, false})
        for (const CLI::Option *option : options_of(shown, positional)) out += option_roff(*option);
    if (command) out += "Options of\n.BR kipx (1)\nmay stand here, too.\n";
    out += fmt::format(".SH NOTES\n{}\n", roff(shown.get_footer()));
    return out + (command ? ".SH SEE ALSO\n.BR kipx (1)\n" : "");
}

std::string joined(const std::vector<std::string> &words) {
    std::string out;
    for (const std::string &word : words) out += (out.empty() ? "" : " ") + word;
    return out;
}

// All options that may follow a command: its own and the global ones.
std::vector<const CLI::Option *> all_options(const CLI::App &app, const CLI::App &command) {
    std::vector<const CLI::Option *> out = options_of(command, false);
    for (const CLI::Option *option : options_of(app, false))
        if (option->get_name() != "--help") out.push_back(option);
    return out;
}

std::string bash_completion(const CLI::App &app) {
    std::string words, cases, options;
    for (const CLI::App *command : commands_of(app)) {
        std::string names;
        for (const CLI::Option *option : all_options(app, *command)) {
            names += fmt::format(" {}", joined(names_of(*option)));
            std::string reply = "return";
            if (value_of(*option) == Value::words)
                reply = fmt::format("COMPREPLY=($(compgen -W '{}' -- \"$word\")); return",
                                    joined(words_of(*option)));
            if (value_of(*option) == Value::file)
                reply = "COMPREPLY=($(compgen -f -- \"$word\")); return";
            if (value_of(*option) == Value::folder)
                reply = "COMPREPLY=($(compgen -d -- \"$word\")); return";
            if (value_of(*option) == Value::none) continue;
            for (const std::string &name : names_of(*option))
                cases += fmt::format("        {}:{}) {} ;;\n", command->get_name(), name, reply);
        }
        words += " " + command->get_name();
        options += fmt::format("        {}) names='{}' ;;\n", command->get_name(), names.substr(1));
    }
    return fmt::format(R"(# bash completion for kipx
_kipx() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} command= names= i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case " {0} " in *" ${{COMP_WORDS[i]}} "*) command=${{COMP_WORDS[i]}}; break ;; esac
    done
    if [[ -z $command ]]; then
        COMPREPLY=($(compgen -W '{0} {1}' -- "$word"))
        return
    fi
    case $command:$before in
{2}    esac
    case $command in
{3}    esac
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$names" -- "$word"))
    else
        COMPREPLY=($(compgen -f -- "$word"))
    fi
}}
complete -o filenames -F _kipx kipx
)",
                       words.substr(1),
                       [&] {
                           std::string names;
                           for (const CLI::Option *option : options_of(app, false))
                               names += (names.empty() ? "" : " ") + joined(names_of(*option));
                           return names;
                       }(),
                       cases, options);
}

// Text between single quotes, for zsh with what its argument patterns take as their own.
std::string quoted(const std::string &text, bool zsh) {
    std::string out;
    for (const char c : text) {
        if (c == '\'') {
            out += zsh ? "'\\''" : "\\'";
            continue;
        }
        if (zsh && (c == ':' || c == '[' || c == ']')) out += '\\';
        if (!zsh && c == '\\') out += '\\';
        out += c == '\n' ? ' ' : c;
    }
    return out;
}

std::string zsh_completion(const CLI::App &app) {
    std::string commands, cases;
    for (const CLI::App *command : commands_of(app)) {
        commands += fmt::format("    '{}:{}'\n", command->get_name(),
                                quoted(command->get_description(), true));
        cases += fmt::format("    {})\n        _arguments \\\n", command->get_name());
        for (const CLI::Option *option : all_options(app, *command))
            for (const std::string &name : names_of(*option)) {
                std::string action;
                switch (value_of(*option)) {
                case Value::none:
                    break;
                case Value::words:
                    action = fmt::format(":value:({})", joined(words_of(*option)));
                    break;
                case Value::file:
                    action = ":file:_files";
                    break;
                case Value::folder:
                    action = ":folder:_files -/";
                    break;
                case Value::other:
                    action = fmt::format(":{}:", quoted(option->get_type_name(), true));
                    break;
                }
                cases += fmt::format("            '{}[{}]{}' \\\n", name,
                                     quoted(option->get_description(), true), action);
            }
        cases += "            '*:file:_files'\n        ;;\n";
    }
    return fmt::format(R"(#compdef kipx
local -a commands
commands=(
{0})
if (( CURRENT == 2 )); then
    _describe command commands
    return
fi
local command=$words[2]
shift words
(( CURRENT-- ))
case $command in
{1}esac
)",
                       commands, cases);
}

std::string fish_completion(const CLI::App &app) {
    std::string out = "# fish completion for kipx\n";
    for (const CLI::App *command : commands_of(app)) {
        out += fmt::format("complete -c kipx -n __fish_use_subcommand -a {} -d '{}'\n",
                           command->get_name(), quoted(command->get_description(), false));
        for (const CLI::Option *option : all_options(app, *command)) {
            std::string line = fmt::format("complete -c kipx -n '__fish_seen_subcommand_from {}'",
                                           command->get_name());
            for (const std::string &name : option->get_snames()) line += " -s " + name;
            for (const std::string &name : option->get_lnames()) line += " -l " + name;
            if (takes_value(*option)) line += value_of(*option) == Value::words ? " -x" : " -r";
            if (value_of(*option) == Value::words)
                line += fmt::format(" -a '{}'", joined(words_of(*option)));
            out += fmt::format("{} -d '{}'\n", line, quoted(option->get_description(), false));
        }
    }
    return out;
}

} // namespace

void add_reference_commands(CLI::App &app, const Globals &) {
    CLI::App *command = app.add_subcommand("reference", "Write manual pages and shell completion");
    auto folder = std::make_shared<std::string>();
    add_value(*command, "DIR", *folder, filled(), "", "Folder for them")->required();
    command->group(""); // not for --help
    command->callback([&app, folder] {
        make_folder(*folder);
        const auto write = [&](const std::string &name, const std::string &text) {
            write_text(text, (std::filesystem::path(*folder) / name).string());
        };
        write("kipx.1", man_page(app, nullptr));
        for (const CLI::App *known : commands_of(app))
            write(fmt::format("kipx-{}.1", known->get_name()), man_page(app, known));
        write("kipx.bash", bash_completion(app));
        write("_kipx", zsh_completion(app));
        write("kipx.fish", fish_completion(app));
    });
}
