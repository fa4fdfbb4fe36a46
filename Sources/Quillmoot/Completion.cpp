#include "Completion.h"

#include <functional>

#include "CommandDescription.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore::quillmoot {

namespace {

enum class Offer { nothing, choices, files, folders, programs, meetings };

/// What a shell may offer for the value of an option or positional; its name tells.
Offer offerFor(const CLI::Option& option) {
    if (!choicesOf(option).empty()) return Offer::choices;
    const auto name = option.get_positional() ? option.get_name(true) : valueNameOf(option);
    if (name == "DATEI") return Offer::files;
    if (name == "ORDNER" || name == "PFAD") return Offer::folders;
    if (name == "PROGRAMM" || name == "BEFEHL") return Offer::programs;
    return name == "MEETING" ? Offer::meetings : Offer::nothing;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// One word of bash or zsh.
std::string shellWord(const std::string& text) { return "'" + replaced(text, "'", "'\\''") + "'"; }

/// One word of fish.
std::string fishWord(const std::string& text) {
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string inOneLine(const std::vector<std::string>& words) { return text::joined(words, " "); }

void forEachCommand(const CLI::App& app, const std::function<void(const CLI::App&)>& body) {
    body(app);
    for (const auto* command : commandsOf(app)) forEachCommand(*command, body);
}

std::vector<const CLI::Option*> allOptions(const CLI::App& app) {
    auto options = optionsOf(app, false);
    const auto inherited = inheritedOptions(app);
    options.insert(options.end(), inherited.begin(), inherited.end());
    return options;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> all;
    for (const auto* option : allOptions(app)) {
        const auto names = namesOf(*option);
        all.insert(all.end(), names.begin(), names.end());
    }
    return all;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const auto* command : commandsOf(app)) names.push_back(command->get_name());
    return names;
}

std::string zshName(const CLI::App& app) {
    return app.get_parent() == nullptr ? "_quillmoot_program" : "_" + replaced(fullName(app), " ", "_");
}

constexpr std::string_view bashFunctions = R"script(
# Identifiers, shown with their titles, and titles.
_quillmoot_meetings() {
    local i id title
    local -a root=() shown=()
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        if [[ ${words[i]} == --root ]]; then
            root=(--root "${words[i + 1]/#\~\//$HOME/}")
        fi
    done
    while IFS=$'\t' read -r id title; do
        if [[ $id == "$current"* ]]; then
            COMPREPLY+=("$id")
            shown+=("$id  $title")
        fi
        if [[ -n $current && $title == "$current"* ]]; then
            COMPREPLY+=("$title")
            shown+=("$title")
        fi
    done < <("${COMP_WORDS[0]}" complete-meetings "${root[@]}" 2>/dev/null)
    # Titles help to choose; where several identifiers are left, nothing beyond their beginning is inserted.
    if ((${#COMPREPLY[@]} > 1)) && [[ -z $current ]]; then
        COMPREPLY=("${shown[@]}")
    fi
}

_quillmoot_add() {
    local word
    while IFS= read -r word; do
        COMPREPLY+=("$word")
    done
}

_quillmoot() {
    local command=quillmoot takes='' number=0 plain='' options commands i word current
    local -a words=()
    COMPREPLY=()

    # bash takes `--root=x` for three words. The quotes that a word has so far are none of its characters.
    for ((i = 0; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == = && ${words[${#words[@]} - 1]-} == -* ]]; then
            ((i < COMP_CWORD)) && continue
            word=''
        fi
        word=${word#[\"\']}
        words+=("${word//\\/}")
    done
    current=${words[${#words[@]} - 1]}

    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        word=${words[i]}
        if [[ -n $takes ]]; then
            takes=''
        elif [[ -z $plain && $word == -- ]]; then
            plain=yes
        elif [[ -z $plain && $word == -?* ]]; then
            _quillmoot_takes "$command $word"
        elif ((number == 0)) && _quillmoot_takes "$command $word" && [[ $takes == command ]]; then
            command+=" $word"
            takes=''
        else
            takes=''
            ((++number))
        fi
    done

    if [[ -z $takes && -z $plain && $current == -* ]]; then
        _quillmoot_offers "$command"
        _quillmoot_add < <(compgen -W "$options" -- "$current")
        return
    fi
    if [[ -z $takes ]]; then
        if ((number == 0)); then
            _quillmoot_offers "$command"
            _quillmoot_add < <(compgen -W "$commands" -- "$current")
        fi
        _quillmoot_takes "$command $((number + 1))"
    fi
    case $takes in
    files) _quillmoot_add < <(compgen -f -- "$current") ;;
    folders) _quillmoot_add < <(compgen -d -- "$current") ;;
    programs)
        _quillmoot_add < <(compgen -c -- "$current")
        _quillmoot_add < <(compgen -f -- "$current")
        ;;
    meetings) _quillmoot_meetings ;;
    choices*) _quillmoot_add < <(compgen -W "${takes#choices}" -- "$current") ;;
    esac
    # bash then quotes what needs it, and puts a slash behind a folder.
    case $takes in
    files | folders | programs | meetings) compopt -o filenames 2>/dev/null ;;
    esac
}

complete -F _quillmoot quillmoot
)script";

constexpr std::string_view zshFunctions = R"script(
# Identifiers with their titles, and titles.
__quillmoot_meetings() {
    local -a root ids titles
    local i meeting
    for ((i = 2; i < ${#call}; i++)); do
        case $call[i] in
        --root) root=(--root "${${(Q)call[i + 1]}/#\~\//$HOME/}") ;;
        --root=*) root=(--root "${${(Q)call[i]#--root=}/#\~\//$HOME/}") ;;
        esac
    done
    for meeting in ${(f)"$(_call_program meetings ${call[1]} complete-meetings ${(q)root[@]} 2>/dev/null)"}; do
        ids+=("${meeting%%$'\t'*}:${meeting#*$'\t'}")
        titles+=("${meeting#*$'\t'}")
    done
    _describe -t meetings Meeting ids
    [[ -n $PREFIX ]] && compadd -J titles -a titles
}

__quillmoot_programs() {
    _alternative 'commands:Programm:_command_names -e' 'files:Datei:_files'
}

# The whole line, since _arguments takes words away.
local -a call=("${words[@]}")
_quillmoot_program "$@"
)script";

constexpr std::string_view fishFunctions = R"script(
# Whether the words before the cursor call this command and the cursor is at its argument of that number; "2+"
# means any from the second on.
function __quillmoot_at --argument-names wanted argument
    set -l command quillmoot
    set -l number 1
    set -l takes no
    set -l plain no
    for word in (commandline -opc)[2..-1]
        if test $takes = yes
            set takes no
        else if test $plain = no; and test "x$word" = x--
            set plain yes
        else if test $plain = no; and string match -q -- '-?*' $word
            contains -- "$command $word" $__quillmoot_valued; and set takes yes
        else if test $number = 1; and contains -- "$command $word" $__quillmoot_commands
            set command "$command $word"
        else
            set number (math $number + 1)
        end
    end
    test "$command" = "$wanted"; or return 1
    switch "$argument"
        case '' $number
            return 0
        case '*+'
            test $number -ge (string trim -c + -- $argument)
        case '*'
            return 1
    end
end

# Identifiers with their titles, and titles with their identifiers.
function __quillmoot_meetings
    set -l words (commandline -opc)
    set -l root
    for i in (seq 2 (count $words))
        switch $words[$i]
            case --root
                set -q words[(math $i + 1)]; and set root --root $words[(math $i + 1)]
            case '--root=*'
                set root --root (string replace -- --root= '' $words[$i])
        end
    end
    set root (string replace -r -- '^~/' "$HOME/" $root)
    for meeting in ($words[1] complete-meetings $root 2>/dev/null)
        set -l parts (string split \t -- $meeting)
        printf '%s\t%s\n' $parts[1] $parts[2] $parts[2] $parts[1]
    end
end

complete -c quillmoot -f
)script";

std::string bashKind(const CLI::Option& option) {
    switch (offerFor(option)) {
        case Offer::choices:
            return "choices " + inOneLine(choicesOf(option));
        case Offer::files:
            return "files";
        case Offer::folders:
            return "folders";
        case Offer::programs:
            return "programs";
        case Offer::meetings:
            return "meetings";
        case Offer::nothing:
            break;
    }
    return "text";
}

/// bash asks for each word what its place takes: a command's full name with an option or with the number of a
/// positional.
std::string bashPlaces(const CLI::App& app) {
    std::string places;
    const auto add = [&](const std::string& pattern, const std::string& kind) {
        places += "    " + pattern + ") takes=" + shellWord(kind) + " ;;\n";
    };
    if (app.get_parent() != nullptr) add(shellWord(fullName(app)), "command");
    for (const auto* option : allOptions(app)) {
        if (valueNameOf(*option).empty()) continue;
        for (const auto& name : namesOf(*option)) add(shellWord(fullName(app) + " " + name), bashKind(*option));
    }
    std::size_t number = 0;
    for (const auto* positional : optionsOf(app, true)) {
        const auto place = takesRest(*positional) ? std::string("[0-9]*") : std::to_string(++number);
        add(shellWord(fullName(app) + " ") + place, bashKind(*positional));
    }
    return places;
}

std::string forBash(const CLI::App& program) {
    std::string places;
    std::string offers;
    forEachCommand(program, [&](const CLI::App& app) {
        offers += "    " + shellWord(fullName(app)) +
                  ")\n        options=" + shellWord(inOneLine(optionNames(app))) +
                  "\n        commands=" + shellWord(inOneLine(commandNames(app))) + "\n        ;;\n";
        places += bashPlaces(app);
    });
    return "# Completion for bash, made by `quillmoot completion bash`.\n\n"
           "_quillmoot_offers() {\n    options='' commands=''\n    case $1 in\n" +
           offers + "    esac\n}\n\n_quillmoot_takes() {\n    takes=''\n    case $1 in\n" + places +
           "    esac\n}\n" + std::string(bashFunctions);
}

/// What `_arguments` is to do for a value, behind the colon of its name.
std::string zshAction(const CLI::Option& option) {
    switch (offerFor(option)) {
        case Offer::choices:
            return "(" + inOneLine(choicesOf(option)) + ")";
        case Offer::files:
            return "_files";
        case Offer::folders:
            return "_files -/";
        case Offer::programs:
            return "__quillmoot_programs";
        case Offer::meetings:
            return "__quillmoot_meetings";
        case Offer::nothing:
            break;
    }
    return " ";
}

std::string zshSpecification(const CLI::Option& option) {
    auto names = namesOf(option);
    auto text = option.get_description();
    for (const char* const special : {"\\", "[", "]"})
        text = replaced(text, special, "\\" + std::string(special));
    text = "[" + text + "]";
    if (const auto value = valueNameOf(option); !value.empty()) {
        text += ":" + value + ":" + zshAction(option);
        // A long option's value may follow an equals sign.
        for (auto& name : names) name += name.starts_with("--") ? "=" : "";
        if (takesRest(option)) return shellWord("*" + names.back() + text);
    }
    if (names.size() == 1) return shellWord(names.front() + text);
    return "'(" + inOneLine(namesOf(option)) + ")'{" + text::joined(names, ",") + "}" + shellWord(text);
}

/// The specifications of a command's positionals from the one at `first` on.
std::string zshPositionals(const CLI::App& app, std::size_t first) {
    std::string text;
    const auto positionals = optionsOf(app, true);
    for (std::size_t i = first; i < positionals.size(); ++i) {
        const auto& positional = *positionals[i];
        const auto place = takesRest(positional)       ? std::string("*:")
                           : positional.get_required() ? std::to_string(i - first + 1) + ":"
                                                       : std::to_string(i - first + 1) + "::";
        text += " \\\n        " + shellWord(place + positional.get_name(true) + ":" + zshAction(positional));
    }
    return text;
}

std::string zshFunction(const CLI::App& app) {
    std::string options;
    for (const auto* option : allOptions(app)) options += " \\\n        " + zshSpecification(*option);
    auto text = zshName(app) + "() {\n";
    const auto commands = commandsOf(app);
    if (commands.empty()) return text + "    _arguments -S :" + options + zshPositionals(app, 0) + "\n}\n\n";

    const auto positionals = optionsOf(app, true);
    text +=
        "    local curcontext=$curcontext state state_descr ret=1\n    local -a line commands\n"
        "    local -A opt_args\n    commands=(\n";
    for (const auto* command : commands) {
        text += "        " + shellWord(command->get_name() + ":" + command->get_description()) + "\n";
    }
    text += "    )\n    _arguments -C -S -A '-*' :" + options +
            " \\\n        '1: :->command' '*:: :->rest' && ret=0\n"
            "    case $state in\n    command)\n        _describe -t commands Befehl commands && ret=0\n";
    if (!positionals.empty()) text += "        " + zshAction(*positionals.front()) + " && ret=0\n";
    text += "        ;;\n    rest)\n        case $words[1] in\n";
    for (const auto* command : commands) {
        text += "        " + command->get_name() + ") " + zshName(*command) + " && ret=0 ;;\n";
    }
    if (!positionals.empty())
        text += "        *) _arguments -S :" + options + zshPositionals(app, 1) + " && ret=0 ;;\n";
    return text + "        esac\n        ;;\n    esac\n    return ret\n}\n\n";
}

std::string forZsh(const CLI::App& program) {
    std::string functions;
    forEachCommand(program, [&](const CLI::App& app) { functions += zshFunction(app); });
    return "#compdef quillmoot\n# Completion for zsh, made by `quillmoot completion zsh`.\n\n" + functions +
           std::string(zshFunctions);
}

/// What `complete` is told about a value.
std::string fishValue(const CLI::Option& option) {
    switch (offerFor(option)) {
        case Offer::choices:
            return " -x -a " + fishWord(inOneLine(choicesOf(option)));
        case Offer::files:
            return " -r -F";
        case Offer::folders:
            return " -x -a '(__fish_complete_directories)'";
        case Offer::programs:
            return " -r -F -a '(__fish_complete_command)'";
        case Offer::meetings:
            return " -x -a '(__quillmoot_meetings)'";
        case Offer::nothing:
            break;
    }
    return " -x";
}

std::string fishCommand(const CLI::App& app) {
    std::string text;
    const auto add = [&](const std::string& place, const std::string& what, const std::string& description) {
        text += "complete -c quillmoot -n " + fishWord("__quillmoot_at '" + fullName(app) + "'" + place) +
                what + " -d " + fishWord(description) + "\n";
    };
    for (const auto* option : allOptions(app)) {
        std::string names;
        for (const auto& name : option->get_snames()) names += " -s " + name;
        for (const auto& name : option->get_lnames()) names += " -l " + name;
        add("", names + (valueNameOf(*option).empty() ? "" : fishValue(*option)), option->get_description());
    }
    for (const auto* command : commandsOf(app))
        add(" 1", " -a " + command->get_name(), command->get_description());
    std::size_t number = 0;
    for (const auto* positional : optionsOf(app, true)) {
        const auto place = " " + std::to_string(++number) + (takesRest(*positional) ? "+" : "");
        if (offerFor(*positional) != Offer::nothing)
            add(place, fishValue(*positional), positional->get_name(true));
    }
    return text;
}

std::string forFish(const CLI::App& program) {
    std::string commands;
    std::string valued;
    std::string completions;
    forEachCommand(program, [&](const CLI::App& app) {
        if (app.get_parent() != nullptr) commands += " \\\n    " + fishWord(fullName(app));
        for (const auto* option : allOptions(app)) {
            if (valueNameOf(*option).empty()) continue;
            for (const auto& name : namesOf(*option))
                valued += " \\\n    " + fishWord(fullName(app) + " " + name);
        }
        completions += fishCommand(app);
    });
    return "# Completion for fish, made by `quillmoot completion fish`.\n\nset -g __quillmoot_commands" +
           commands + "\nset -g __quillmoot_valued" + valued + "\n" + std::string(fishFunctions) + completions;
}

}  // namespace

std::string completionScript(const CLI::App& program, const std::string& shell) {
    if (shell == "bash") return forBash(program);
    return shell == "zsh" ? forZsh(program) : forFish(program);
}

}  // namespace meetingcore::quillmoot
