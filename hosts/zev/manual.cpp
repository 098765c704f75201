// Each text is made from the options as they were declared; nothing is said twice.
#include "manual.hpp"

#include <CLI/CLI.hpp>

#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

namespace host {

namespace {

using Apps = std::vector<const CLI::App *>;
using Options = std::vector<const CLI::Option *>;

// The name of the program that a verb belongs to.
std::string program_of(const CLI::App &app) {
    const CLI::App *at = &app;
    while (at->get_parent()) at = at->get_parent();
    return at->get_name();
}

// Nothing that is hidden, having an empty group.
Apps verbs_of(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *verb) { return !verb->get_group().empty(); });
}

Options options_of(const CLI::App &app, bool positional) {
    return app.get_options([positional](const CLI::Option *option) {
        return !option->get_group().empty() && option->get_positional() == positional &&
               option->nonpositional() != positional;
    });
}

bool takes_value(const CLI::Option *option) { return option->get_items_expected_max() > 0; }

std::string value_name(const CLI::Option *option) {
    const std::string type = option->get_type_name();
    return type.substr(0, type.find(':'));
}

// "-m, --message"
std::string names_of(const CLI::Option *option) {
    std::string names;
    for (const std::string &name : option->get_snames())
        names += (names.empty() ? "-" : ", -") + name;
    for (const std::string &name : option->get_lnames())
        names += (names.empty() ? "--" : ", --") + name;
    return names;
}

// The verb and the verbs below it, as "trash" and "trash list".
void each_verb(const CLI::App &app, const std::string &above,
               const std::function<void(const std::string &name, const CLI::App &verb)> &visit) {
    for (const CLI::App *verb : verbs_of(app)) {
        const std::string name = (above.empty() ? "" : above + " ") + verb->get_name();
        visit(name, *verb);
        each_verb(*verb, name, visit);
    }
}

std::string replaced(std::string text, char what, const char *by) {
    for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += strlen(by))
        text.replace(at, 1, by);
    return text;
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// ---- Manual pages

// scdoc reads `*` and `_` as marks, and others at the start of a line.
std::string plain(const std::string &text) {
    std::string out = text.starts_with('-') ? "\\" : "";
    for (char c : text) {
        if (strchr("\\*_`<>[]#", c)) out += '\\';
        out += c;
    }
    return out;
}

std::string headline(const std::string &page) { return page + "(1) \"\" \"ZEV\"\n\n# NAME\n\n"; }

std::string synopsis(const std::string &name, const CLI::App &verb) {
    std::string text = "*" + program_of(verb) + " " + plain(name) + "*";
    if (!options_of(verb, false).empty()) text += " \\[_options_\\]";
    if (!verbs_of(verb).empty()) text += " _command_";
    for (const CLI::Option *argument : options_of(verb, true)) {
        std::string word = "_" + plain(argument->get_name(true)) + "_";
        if (argument->get_items_expected_max() > 1) word += "...";
        text += argument->get_required() ? " " + word : " \\[" + word + "\\]";
    }
    return text + "\n\n";
}

std::string option_list(const CLI::App &app) {
    std::string text;
    for (bool positional : {true, false}) {
        for (const CLI::Option *option : options_of(app, positional)) {
            const std::string value = value_name(option);
            if (positional) text += "_" + plain(option->get_name(true)) + "_";
            if (!positional) text += "*" + plain(names_of(option)) + "*";
            if (!positional && takes_value(option) && !value.empty())
                text += " _" + plain(value) + "_";
            text += "\n\t" + plain(option->get_description()) + "\n\n";
        }
    }
    return text;
}

// Prose as it is, lines that begin with blanks as they stand.
std::string prose(const std::string &text) {
    std::string out;
    bool literal = false;
    size_t at = 0;
    const auto fence = [&](bool on) {
        if (literal != on) out += on ? "\n```\n" : "```\n\n";
        literal = on;
    };
    while (at < text.size()) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        fence(line.starts_with("  "));
        const bool examples = line == "Example:" || line == "Examples:";
        out += examples ? "\n# EXAMPLES\n" : (literal ? line.substr(2) : plain(line)) + "\n";
    }
    fence(false);
    return out + "\n";
}

std::string verb_page(const std::string &name, const CLI::App &verb) {
    const std::string program = program_of(verb);
    const std::string page = program + "-" + replaced(name, ' ', "-");
    std::string text = headline(page);
    text += plain(page) + " - " + plain(verb.get_description()) + "\n\n";
    text += "# SYNOPSIS\n\n" + synopsis(name, verb);
    for (const std::string &alias : verb.get_aliases()) text += synopsis(alias, verb);
    text +=
        "# DESCRIPTION\n\n" + plain(verb.get_description()) + ".\n\n" + prose(verb.get_footer());
    if (const std::string list = option_list(verb); !list.empty()) text += "# OPTIONS\n\n" + list;
    each_verb(verb, name, [&](const std::string &full, const CLI::App &below) {
        text += "# ZEV " + full + "\n\n" + synopsis(full, below);
        text += plain(below.get_description()) + ".\n\n" + option_list(below);
        text += prose(below.get_footer());
    });
    return text + "# SEE ALSO\n\n*" + program + "*(1)\n";
}

std::string program_page(const CLI::App &app) {
    const std::string about = app.get_description(), name = app.get_name();
    std::string text = headline(name);
    text += name + " - " + plain(about.substr(0, about.find(".\n"))) + "\n\n";
    text += "# SYNOPSIS\n\n*" + name + "* \\[_options_\\] _verb_ \\[_arguments_\\]\n\n";
    text += "# DESCRIPTION\n\n" + prose(about) + "# VERBS\n\n";
    for (const CLI::App *verb : verbs_of(app))
        text += "*" + plain(verb->get_name()) + "*\n\t" + plain(verb->get_description()) + "\n\n";
    return text + "# OPTIONS\n\n" + option_list(app) + "# NOTES\n\n" + prose(app.get_footer());
}

std::string manual(const CLI::App &app, const std::string &wanted) {
    if (wanted.empty()) return program_page(app);
    std::string text;
    for (const CLI::App *verb : verbs_of(app))
        if (verb->get_name() == wanted) text = verb_page(wanted, *verb);
    return text;
}

// ---- Completion

// What completes a value, kinds of words with blanks between: files, directories, a list that
// "generate words" gives, or nothing.
std::string values_of(const CLI::App &verb, const CLI::Option *option) {
    constexpr const char *kByType[][2] = {{"REV", "revisions"},
                                          {"HANDLE", "objects"},
                                          {"FILE", "files"},
                                          {"DIR", "directories"},
                                          {"COPY", "directories"}};
    constexpr const char *kByName[][3] = {
        {"resolve", "paths", "files clashes"},
        {"", "paths", "files"},
        {"", "files", "files"},
        {"", "drawing", "files"},
        {"", "file", "files"},
        {"mv", "from", "files"},
        {"mv", "to", "files"},
        {"import", "target", "files"},
        {"export", "drawings", "files"},
        {"export", "target", "files"},
        {"", "entries", "trash"},
        {"", "pattern", "trash"},
        {"", "branch", "revisions"},
        {"switch", "target", "revisions"},
        {"branch", "name", "branches"},
        {"tag", "name", "tags"},
        {"", "directories", "directories"},
    };
    const std::string type = value_name(option), name = option->get_name(true);
    for (const auto &[known, values] : kByType)
        if (type == known) return values;
    for (const auto &[of, known, values] : kByName)
        if (name == known && (!*of || verb.get_name() == of)) return values;
    return "";
}

// The same of all arguments of a verb, each once.
std::vector<std::string> arguments_of(const CLI::App &verb) {
    std::set<std::string> values;
    for (const CLI::Option *argument : options_of(verb, true)) {
        std::istringstream kinds(values_of(verb, argument));
        for (std::string kind; kinds >> kind;) values.insert(kind);
    }
    return {values.begin(), values.end()};
}

std::vector<std::string> spellings(const CLI::Option *option) {
    std::vector<std::string> names;
    for (const std::string &name : option->get_snames()) names.push_back("-" + name);
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

// "trash list" as it can be typed, first as it is called: a short name stands for the last word.
std::vector<std::string> typed_names(const std::string &name, const CLI::App &verb) {
    const size_t last = name.rfind(' ') + 1; // 0 where there is none
    std::vector<std::string> names = {name};
    for (const std::string &alias : verb.get_aliases())
        names.push_back(name.substr(0, last) + alias);
    return names;
}

// 'a' | 'b', as the shells write alternatives.
std::string alternatives(const std::vector<std::string> &names, const char *between) {
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : between) + ("'" + name + "'");
    return text;
}

std::vector<std::string> verb_names(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *verb : verbs_of(app)) names.push_back(verb->get_name());
    return names;
}

std::vector<std::string> option_names(const CLI::App &app, bool with_value) {
    std::vector<std::string> names;
    for (const CLI::Option *option : options_of(app, false)) {
        if (with_value && !takes_value(option)) continue;
        for (const std::string &name : spellings(option)) names.push_back(name);
    }
    return names;
}

std::string bash(const CLI::App &app) {
    std::string cases, known, behind;
    const std::vector<std::string> global = option_names(app, false);
    each_verb(app, "", [&](const std::string &name, const CLI::App &verb) {
        const std::string typed = alternatives(typed_names(name, verb), " | ");
        known += (known.empty() ? "" : " | ") + typed;
        cases += "    " + typed + ") words='" + joined(verb_names(verb)) + " " +
                 joined(option_names(verb, false)) + " " + joined(global) + "' values='" +
                 joined(arguments_of(verb)) + "' ;;\n";
        for (const CLI::Option *option : options_of(verb, false))
            if (takes_value(option))
                for (const std::string &called : typed_names(name, verb))
                    for (const std::string &spelled : spellings(option))
                        behind += "    '" + called + " " + spelled + "') words= values='" +
                                  values_of(verb, option) + "' ;;\n";
    });
    for (const CLI::Option *option : options_of(app, false))
        if (takes_value(option))
            for (const std::string &spelled : spellings(option))
                behind +=
                    "    *' " + spelled + "') words= values='" + values_of(app, option) + "' ;;\n";
    std::string skip; // options of the program whose next word is no verb
    for (const std::string &name : option_names(app, true))
        skip += (skip.empty() ? "" : " | ") + name;
    const std::string program = app.get_name();
    return "# bash completion for " + program + "\n_" + program +
           "() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} verb= words= values= word line i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        word=${COMP_WORDS[i]}\n"
           "        case \"${verb:+$verb }$word\" in\n"
           "        " +
           skip +
           ") ((i++)) ;;\n"
           "        " +
           known +
           ") verb=\"${verb:+$verb }$word\" ;;\n"
           "        esac\n"
           "    done\n"
           "    case $verb in\n"
           "    '') words='" +
           joined(verb_names(app)) + " " + joined(global) + "' ;;\n" + cases +
           "    esac\n"
           "    case \"$verb ${COMP_WORDS[COMP_CWORD - 1]}\" in\n" +
           behind +
           "    esac\n"
           "    COMPREPLY=()\n"
           "    for word in $words; do\n"
           "        [[ $word == \"$current\"* ]] && COMPREPLY+=(\"$word\")\n"
           "    done\n"
           "    [[ $current == -* ]] && return\n"
           "    for word in $values; do\n"
           "        while IFS= read -r line; do\n"
           "            [[ $line == \"$current\"* ]] && COMPREPLY+=(\"$line\")\n"
           "        done < <(case $word in\n"
           "            files) compgen -f -- \"$current\" ;;\n"
           "            directories) compgen -d -- \"$current\" ;;\n"
           "            *) " +
           program +
           " generate words $word -- \"${COMP_WORDS[@]:1}\" 2>/dev/null ;;\n"
           "            esac)\n"
           "    done\n"
           "    compopt -o filenames 2>/dev/null\n" // quotes what a shell would split
           "}\n"
           "complete -F _" +
           program + " " + program + "\n";
}

std::string zsh_text(const std::string &text) {
    return replaced(replaced(replaced(replaced(text, '\'', "'\\''"), '[', "("), ']', ")"), ':',
                    ",");
}

std::string zsh_options(const CLI::App &app, const std::string &before) {
    std::string text;
    for (const CLI::Option *option : options_of(app, false)) {
        std::string value;
        if (takes_value(option))
            value = ":" + zsh_text(value_name(option)) + ": _" + program_of(app) + "_values " +
                    values_of(app, option);
        for (const std::string &name : spellings(option))
            text +=
                before + "'" + name + "[" + zsh_text(option->get_description()) + "]" + value + "'";
    }
    return text;
}

std::string zsh_verb(const CLI::App &verb, const std::string &margin);

// The verbs of a program or of a verb, and what stands behind each. An option behind a verb's name
// is none of the program's: "(-)" leaves it in the words that the verb gets.
std::string zsh_verbs(const CLI::App &app, const std::string &margin) {
    const std::string line = "\n" + margin, next = line + "    ";
    std::string names, cases;
    for (const CLI::App *verb : verbs_of(app)) {
        const std::string name = verb->get_name();
        names += next + "    '" + name + ":" + zsh_text(verb->get_description()) + "'";
        cases += next + alternatives(typed_names(name, *verb), " | ") + ")" +
                 zsh_verb(*verb, margin + "        ") + " ;;";
    }
    return " \\" + next + "'(-):verb:->verb' '(-)*::argument:->argument'" + line +
           "case $state in" + line + "verb)" + next + "verbs=(" + names + ")" + next +
           "_describe verb verbs ;;" + line + "argument)" + next + "case $words[1] in" + cases +
           next + "esac ;;" + line + "esac";
}

std::string zsh_verb(const CLI::App &verb, const std::string &margin) {
    const std::string line = "\n" + margin, next = line + "    ";
    const bool has_verbs = !verbs_of(verb).empty();
    const std::string text = line + "_arguments" + (has_verbs ? " -C" : "") + " $global" +
                             zsh_options(verb, " \\" + next);
    if (has_verbs) return text + zsh_verbs(verb, margin);
    return text + " \\" + next + "'*:value: _" + program_of(verb) + "_values " +
           joined(arguments_of(verb)) + "'";
}

std::string zsh(const CLI::App &app) {
    const std::string program = app.get_name();
    return "#compdef " + program + "\n_" + program +
           "_values() {\n"
           "    local kind\n"
           "    local -a list\n"
           "    for kind; do\n"
           "        case $kind in\n"
           "        files) _files ;;\n"
           "        directories) _files -/ ;;\n"
           "        *) list=(${(f)\"$(" +
           program +
           " generate words $kind -- $words 2>/dev/null)\"}) && compadd -a list ;;\n"
           "        esac\n"
           "    done\n"
           "}\n_" +
           program +
           "() {\n"
           "    local curcontext=$curcontext state line\n"
           "    local -A opt_args\n"
           "    local -a verbs\n"
           "    local -a global=(" +
           zsh_options(app, "\n        ") +
           ")\n"
           "    _arguments -C $global" +
           zsh_verbs(app, "    ") +
           "\n"
           "}\n"
           "_" +
           program + " \"$@\"\n";
}

// What completes values of these kinds; files by themselves need nothing.
std::string fish_values(const CLI::App &app, const std::vector<std::string> &kinds) {
    std::string list, files = " -f";
    for (const std::string &kind : kinds) {
        if (kind == "files") {
            files = "";
            continue;
        }
        list += list.empty() ? "(" : " (";
        if (kind == "directories") list += "__fish_complete_directories)";
        if (kind != "directories")
            list +=
                program_of(app) + " generate words " + kind + " -- (commandline -opc) 2>/dev/null)";
    }
    return list.empty() ? "" : files + " -a '" + list + "'";
}

// A text of the user's own is no file.
std::string fish_value(const CLI::App &app, const CLI::Option *option) {
    const std::string kind = values_of(app, option);
    return kind.empty() ? " -x" : " -r" + fish_values(app, {kind});
}

std::string fish_options(const CLI::App &app, const std::string &condition) {
    std::string text;
    for (const CLI::Option *option : options_of(app, false)) {
        text += "complete -c " + program_of(app) + condition;
        for (const std::string &name : option->get_snames()) text += " -s " + name;
        for (const std::string &name : option->get_lnames()) text += " -l " + name;
        if (takes_value(option)) text += fish_value(app, option);
        text += " -d '" + replaced(option->get_description(), '\'', "\\'") + "'\n";
    }
    return text;
}

// Is this the verb that was typed? Its own words and options stand behind it, those of the program
// anywhere.
std::string fish_test(const CLI::App &app) {
    std::string known;
    each_verb(app, "", [&](const std::string &name, const CLI::App &verb) {
        known += "            case " + alternatives(typed_names(name, verb), " ") +
                 "\n                set verb '" + name + "'\n";
    });
    return "function __" + program_of(app) +
           "_at\n"
           "    set -l verb ''\n"
           "    set -l value 0\n"
           "    for word in (commandline -opc)[2..-1]\n"
           "        if test $value = 1\n"
           "            set value 0\n"
           "            continue\n"
           "        end\n"
           "        contains -- $word " +
           joined(option_names(app, true)) +
           "\n"
           "        and set value 1\n"
           "        set -l typed (string trim -- \"$verb $word\")\n"
           "        switch \"$typed\"\n" +
           known +
           "        end\n"
           "    end\n"
           "    test \"$verb\" = \"$argv[1]\"\n"
           "end\n";
}

std::string fish(const CLI::App &app) {
    const std::string program = app.get_name();
    const auto condition = [&](const std::string &verb) {
        return " -n '__" + program + "_at \"" + verb + "\"'";
    };
    std::string text =
        "# fish completion for " + program + "\n" + fish_test(app) + fish_options(app, "");
    each_verb(app, "", [&](const std::string &name, const CLI::App &verb) {
        const size_t blank = name.rfind(' ');
        const std::string above = blank == name.npos ? "" : name.substr(0, blank);
        text += "complete -c " + program + condition(above) + " -f -a " + verb.get_name() +
                " -d '" + replaced(verb.get_description(), '\'', "\\'") + "'\n";
        const std::string values = fish_values(app, arguments_of(verb));
        if (!values.empty()) text += "complete -c " + program + condition(name) + values + "\n";
        text += fish_options(verb, condition(name));
    });
    return text;
}

} // namespace

std::string describe(const CLI::App &app, const std::string &kind, const std::string &verb) {
    if (kind == "man") return manual(app, verb);
    if (kind == "verbs") return joined(verb_names(app)) + "\n";
    if (kind == "bash") return bash(app);
    if (kind == "zsh") return zsh(app);
    return kind == "fish" ? fish(app) : "";
}

} // namespace host
