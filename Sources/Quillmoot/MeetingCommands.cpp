#include <algorithm>
#include <iostream>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

struct ProjectRow {
    std::string id;
    std::string name;
    std::int64_t meetings = 0;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::ProjectRow> = json::record(
    json::field("id", &quillmoot::ProjectRow::id), json::field("name", &quillmoot::ProjectRow::name),
    json::field("meetings", &quillmoot::ProjectRow::meetings));

namespace quillmoot {
namespace {

struct RenameValues {
    std::string meeting;
    std::string title;
};

struct PinValues {
    std::string meeting;
    bool off = false;
};

struct NoteValues : MeetingValues {
    std::optional<std::string> text;
};

struct ParticipantsValues : MeetingValues {
    std::vector<std::string> added;
    std::vector<std::string> removed;
};

struct InstructionsValues : MeetingValues {
    std::optional<std::string> base;
    std::optional<std::string> hint;
    bool reset = false;
};

struct ListingValues {
    bool json = false;
};

/// The name of a project or field.
struct NameValues {
    std::string name;
};

struct NewNameValues {
    std::string name;
    std::string newName;
};

struct AssignmentValues {
    std::string meeting;
    std::string project;
};

struct FieldValues {
    std::string meeting;
    std::string field;
    std::optional<std::string> value;
};

/// The argument itself, or for "-" what comes on standard input.
std::string textOf(const std::string& argument) {
    constexpr std::size_t limit = 1'048'576;
    if (argument != "-") return argument;
    std::string text(limit + 1, '\0');
    std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (std::cin.bad()) throw MeetingError::storage("Die Standardeingabe konnte nicht gelesen werden.");
    text.resize(static_cast<std::size_t>(std::cin.gcount()));
    if (text.size() > limit)
        throw MeetingError::invalidData("Der Text auf der Standardeingabe ist länger als 1 MiB.");
    return text;
}

/// Throws where a project other than `self` has this name.
void requireFree(const std::vector<MeetingProject>& projects, const std::string& name,
                 const std::optional<UUID>& self = {}) {
    const auto taken = [&](const auto& project) { return sameName(project.name, name) && project.id != self; };
    if (std::ranges::any_of(projects, taken))
        throw MeetingError::invalidData("Ein Projekt „" + name + "“ gibt es schon.");
}

int rename(Shell& shell, const RenameValues& values) {
    const auto title = checkedName(values.title, "Der Titel");
    auto open = shell.openLibrary();
    open.change(open.meeting(values.meeting).id, [&](MeetingEntry& entry) {
        entry.title = title;
        entry.automaticTitlePending = false;
    });
    return done;
}

int pin(Shell& shell, const PinValues& values) {
    auto open = shell.openLibrary();
    open.change(open.meeting(values.meeting).id, [&](MeetingEntry& entry) { entry.pinned = !values.off; });
    return done;
}

int note(Shell& shell, const NoteValues& values) {
    if (!values.text) {
        auto folder = shell.folder();
        const auto& notes = folder.meeting(values.meeting).notes;
        if (values.json) {
            shell.writeJSON(notes);
        } else if (notes.empty()) {
            shell.err().line("Keine Notizen.");
        } else {
            shell.out().paragraphs(notes);
        }
        return done;
    }
    const auto notes = textOf(*values.text);
    auto open = shell.openLibrary();
    open.change(open.meeting(values.meeting).id,
                [&](MeetingEntry& entry) { entry.notes = text::trimmed(notes); });
    return done;
}

int listProjects(Shell& shell, const ListingValues& values) {
    auto folder = shell.folder();
    const auto& library = folder.library();
    std::vector<ProjectRow> rows;
    for (const auto& project : library.projects) {
        rows.push_back(
            {project.id.string(), project.name,
             std::ranges::count(library.meetings, std::optional(project.id), &MeetingEntry::projectID)});
    }
    if (values.json) {
        shell.writeJSON(rows);
        return done;
    }
    if (rows.empty()) shell.err().line("Keine Projekte.");
    for (const auto& row : rows) {
        shell.out().line(row.name + " (" +
                         countOf(static_cast<std::size_t>(row.meetings), "Meeting", "Meetings") + ")");
    }
    return done;
}

int addProject(Shell& shell, const NameValues& values) {
    const auto name = checkedName(values.name, "Der Name");
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        requireFree(library.projects, name);
        library.projects.push_back({UUID::random(), name});
    });
    return done;
}

int renameProject(Shell& shell, const NewNameValues& values) {
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        const auto project = named(library.projects, values.name, "Ein Projekt");
        const auto name = checkedName(values.newName, "Der Name");
        requireFree(library.projects, name, project->id);
        project->name = name;
    });
    return done;
}

int removeProject(Shell& shell, const NameValues& values) {
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        const auto project = named(library.projects, values.name, "Ein Projekt");
        for (auto& meeting : library.meetings) {
            if (meeting.projectID == project->id) meeting.projectID.reset();
        }
        library.projects.erase(project);
    });
    return done;
}

int assignProject(Shell& shell, const AssignmentValues& values) {
    auto open = shell.openLibrary();
    const auto meeting = open.meeting(values.meeting).id;
    open.library().update([&](LibrarySnapshot& library) {
        auto& entry = *std::ranges::find(library.meetings, meeting, &MeetingEntry::id);
        if (values.project.empty()) {
            entry.projectID.reset();
        } else {
            entry.projectID = named(library.projects, values.project, "Ein Projekt")->id;
        }
    });
    return done;
}

/// Adds a name unless it is there; throws where the metadata would cut it or leave it out.
void addParticipant(MeetingMetadata& metadata, const std::string& typed) {
    const auto name = checkedName(typed, "Ein Name");
    if (text::exceeds(name, MeetingMetadata::maximumParticipantCharacters))
        throw MeetingError::invalidData("Ein Name darf höchstens 100 Zeichen haben.");
    const auto known = [&](const std::string& other) { return sameName(other, name); };
    if (metadata.participants.size() == MeetingMetadata::maximumParticipants &&
        std::ranges::none_of(metadata.participants, known)) {
        throw MeetingError::invalidData("Ein Meeting hat höchstens 100 Teilnehmer.");
    }
    metadata.addParticipant(name);
}

int participants(Shell& shell, const ParticipantsValues& values) {
    if (values.added.empty() && values.removed.empty()) {
        auto folder = shell.folder();
        const auto names = folder.meeting(values.meeting).metadata.value_or(MeetingMetadata{}).participants;
        if (values.json) {
            shell.writeJSON(names);
        } else {
            if (names.empty()) shell.err().line("Keine Teilnehmer.");
            for (const auto& name : names) shell.out().line(name);
        }
        return done;
    }
    auto open = shell.openLibrary();
    open.change(open.meeting(values.meeting).id, [&](MeetingEntry& entry) {
        auto metadata = entry.metadata.value_or(MeetingMetadata{});
        for (const auto& name : values.removed) {
            const auto found = std::ranges::find_if(metadata.participants,
                                                    [&](const auto& known) { return sameName(known, name); });
            if (found == metadata.participants.end()) {
                throw MeetingError::invalidData("„" + name + "“ ist nicht unter den Teilnehmern.");
            }
            metadata.participants.erase(found);
        }
        for (const auto& name : values.added) addParticipant(metadata, name);
        entry.metadata = std::move(metadata);
    });
    return done;
}

int listFields(Shell& shell, const ListingValues& values) {
    auto folder = shell.folder();
    const auto fields = folder.library().customFields.value_or(std::vector<MeetingFieldDefinition>{});
    if (values.json) {
        shell.writeJSON(fields);
    } else {
        if (fields.empty()) shell.err().line("Keine eigenen Felder.");
        for (const auto& field : fields) shell.out().line(field.name);
    }
    return done;
}

bool isDefined(const MeetingFieldValue& value, const std::vector<MeetingFieldDefinition>& fields) {
    return std::ranges::find(fields, value.id, &MeetingFieldDefinition::id) != fields.end();
}

/// Adds a field. What meetings still say in a removed one of this name belongs to the new one.
int addField(Shell& shell, const NameValues& values) {
    const auto name = checkedName(values.name, "Der Name");
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        auto fields = library.customFields.value_or(std::vector<MeetingFieldDefinition>{});
        const auto id = UUID::random();
        for (auto& meeting : library.meetings) {
            if (!meeting.metadata) continue;
            const auto old =
                std::ranges::find_if(meeting.metadata->fields, [&](const MeetingFieldValue& field) {
                    return sameName(field.name, name) && !isDefined(field, fields);
                });
            if (old != meeting.metadata->fields.end()) old->id = id;
        }
        fields.push_back({id, name});
        library.customFields = std::move(fields);
    });
    return done;
}

/// Also in what meetings say in it, which keeps the name should the field be removed.
int renameField(Shell& shell, const NewNameValues& values) {
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        auto fields = library.customFields.value_or(std::vector<MeetingFieldDefinition>{});
        auto& field = *named(fields, values.name, "Ein Feld");
        field.name = checkedName(values.newName, "Der Name");
        for (auto& meeting : library.meetings) {
            if (!meeting.metadata) continue;
            for (auto& value : meeting.metadata->fields) {
                if (value.id == field.id) value.name = field.name;
            }
        }
        library.customFields = std::move(fields);
    });
    return done;
}

int removeField(Shell& shell, const NameValues& values) {
    shell.openLibrary().library().update([&](LibrarySnapshot& library) {
        auto fields = library.customFields.value_or(std::vector<MeetingFieldDefinition>{});
        fields.erase(named(fields, values.name, "Ein Feld"));
        library.customFields = std::move(fields);
    });
    return done;
}

int setField(Shell& shell, const FieldValues& values) {
    auto open = shell.openLibrary();
    const auto meeting = open.meeting(values.meeting).id;
    open.library().update([&](LibrarySnapshot& library) {
        const auto fields = library.customFields.value_or(std::vector<MeetingFieldDefinition>{});
        auto& entry = *std::ranges::find(library.meetings, meeting, &MeetingEntry::id);
        auto metadata = entry.metadata.value_or(MeetingMetadata{}).resolving(fields);
        const auto value = values.value ? text::trimmed(*values.value) : std::string_view();
        const auto removed = std::erase_if(metadata.fields, [&](const MeetingFieldValue& field) {
            return sameName(field.name, values.field) && !isDefined(field, fields);
        });
        if (!value.empty() || removed == 0) {
            const auto field = named(fields, values.field, "Ein Feld");
            std::ranges::find(metadata.fields, field->id, &MeetingFieldValue::id)->value = value;
        }
        entry.metadata = std::move(metadata);
    });
    return done;
}

int instructions(Shell& shell, const InstructionsValues& values) {
    if (values.base == "-" && values.hint == "-")
        throw UsageError("Nur eines von --base und --hint kann von der Standardeingabe kommen.");
    auto folder = shell.folder();
    const auto file = folder.folderOf(folder.meeting(values.meeting).id) / layout::summaryInstructions;
    SummaryInstructions wishes;
    const auto read = [&] {
        if (!values.reset) wishes = TranscriptStorage::readOptional<SummaryInstructions>(file).value_or(wishes);
    };
    if (values.base || values.hint || values.reset) {
        const auto newBase = values.base ? std::optional(textOf(*values.base)) : std::nullopt;
        const auto newHint = values.hint ? std::optional(textOf(*values.hint)) : std::nullopt;
        const auto open = shell.openLibrary();
        read();
        wishes.basePrompt = newBase.value_or(wishes.basePrompt);
        wishes.meetingPrompt = newHint.value_or(wishes.meetingPrompt);
        wishes = wishes.validated();
        TranscriptStorage::save(wishes, file);
        return done;
    }
    read();
    if (values.json) {
        shell.writeJSON(wishes);
        return done;
    }
    shell.out().heading("Vorgaben");
    shell.out().paragraphs(wishes.basePrompt);
    shell.out().heading("Hinweise zu diesem Meeting");
    shell.out().paragraphs(wishes.meetingPrompt.empty() ? "keine" : wishes.meetingPrompt);
    return done;
}

void addName(CLI::App& command, NameValues& values) {
    notBlank(command.add_option("NAME", values.name, "Der Name"))->required();
}

void addNames(CLI::App& command, NewNameValues& values) {
    notBlank(command.add_option("NAME", values.name, "Der bisherige Name"))->required();
    notBlank(command.add_option("NEU", values.newName, "Der neue Name"))->required();
}

void addProjectCommands(CLI::App& app, Shell& shell) {
    const auto [project, listing] =
        addCommand(app, shell, "project", "Projekte, die Meetings zusammenfassen", listProjects);
    addJSON(project, listing.json);
    const auto [added, addition] = addCommand(project, shell, "add", "Legt ein Projekt an", addProject);
    addName(added, addition);
    const auto [renamed, names] = addCommand(project, shell, "rename", "Benennt ein Projekt um", renameProject);
    addNames(renamed, names);
    const auto [removed, removal] =
        addCommand(project, shell, "remove", "Löst ein Projekt auf; seine Meetings bleiben", removeProject);
    addName(removed, removal);
    const auto [assigned, assignment] =
        addMeetingCommand(project, shell, "assign", "Ordnet ein Meeting einem Projekt zu", assignProject);
    assigned.add_option("NAME", assignment.project, "Das Projekt; ohne Namen keines mehr");
}

void addFieldCommands(CLI::App& app, Shell& shell) {
    const auto [fields, listing] =
        addCommand(app, shell, "fields", "Eigene Felder für die Angaben zu Meetings", listFields);
    addJSON(fields, listing.json);
    const auto [added, addition] = addCommand(fields, shell, "add", "Legt ein Feld an", addField);
    addName(added, addition);
    const auto [renamed, names] = addCommand(fields, shell, "rename", "Benennt ein Feld um", renameField);
    addNames(renamed, names);
    const auto [removed, removal] = addCommand(
        fields, shell, "remove", "Entfernt ein Feld; was darin steht, bleibt bei den Meetings", removeField);
    addName(removed, removal);
    const auto [set, filling] =
        addMeetingCommand(fields, shell, "set", "Füllt ein Feld eines Meetings aus", setField);
    notBlank(set.add_option("NAME", filling.field, "Das Feld"))->required();
    set.add_option("WERT", filling.value, "Der Wert; ohne ihn wird das Feld geleert");
}

}  // namespace

void addMeetingCommands(CLI::App& app, Shell& shell) {
    const auto [renamed, naming] =
        addMeetingCommand(app, shell, "rename", "Gibt einem Meeting einen Titel", rename);
    notBlank(renamed.add_option("TITEL", naming.title, "Der neue Titel"))->required();

    const auto [pinned, pinning] = addMeetingCommand(app, shell, "pin", "Heftet ein Meeting oben an", pin);
    pinned.add_flag("--off", pinning.off, "Nicht mehr oben anheften");

    const auto [noted, notes] =
        addMeetingCommand(app, shell, "note", "Zeigt oder ersetzt die Notizen zu einem Meeting", note);
    noted.add_option("TEXT", notes.text, "Der neue Text; „-“ liest ihn von der Standardeingabe");
    addJSON(noted, notes.json);

    const auto [people, names] = addMeetingCommand(
        app, shell, "participants", "Zeigt oder ändert die Teilnehmer eines Meetings", participants);
    notBlank(people.add_option("--add", names.added, "Nimmt einen Namen auf"))
        ->type_name("NAME")
        ->allow_extra_args(false);
    notBlank(people.add_option("--remove", names.removed, "Streicht einen Namen"))
        ->type_name("NAME")
        ->allow_extra_args(false);
    addJSON(people, names.json);

    addProjectCommands(app, shell);
    addFieldCommands(app, shell);

    const auto [instructed, wishes] = addMeetingCommand(
        app, shell, "instructions", "Zeigt oder ändert die Vorgaben für die Zusammenfassung", instructions);
    instructed.add_option("--base", wishes.base, "Inhalt und Stil; „-“ liest von der Standardeingabe")
        ->type_name("TEXT");
    instructed
        .add_option("--hint", wishes.hint, "Hinweise zu diesem Meeting; „-“ liest von der Standardeingabe")
        ->type_name("TEXT");
    instructed.add_flag("--reset", wishes.reset, "Zurück zu den üblichen Vorgaben");
    addJSON(instructed, wishes.json);
}

}  // namespace quillmoot
}  // namespace meetingcore
