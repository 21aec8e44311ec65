// Other programs' files: the list of Thunar's actions keeps all that is not ours, lists of default programs
// give names without blanks around them, and what is quoted is read as it was.

#include <stdexcept>
#include <string>
#include <vector>

#include "Check.h"
#include "ScratchFile.h"
#include "filemanagers/FileManager.h"
#include "filemanagers/Quoting.h"
#include "filemanagers/ThunarActions.h"
#include "permissions/DefaultApplications.h"

namespace {

using namespace useragent;

constexpr std::string_view kAction =
    "<action>\n\t<name>Properties</name>\n\t<unique-id>tessarin-properties</unique-id>\n"
    "\t<command>'/opt/helper' %F</command>\n</action>";

void CheckActions(const std::string& list) {
    try {
        const bool hadAction = thunar::HasAction(list);
        const std::string with = thunar::WithAction(list, kAction);
        Check(thunar::HasAction(with) && thunar::WithAction(with, kAction) == with);
        thunar::IsMadeByUs(list);
        const std::string without = thunar::WithoutAction(with);
        Check(!thunar::HasAction(without));
        // A list that was one empty tag stays one of two.
        Check(hadAction || without == list || list.find("/>") != std::string::npos);
    } catch (const std::runtime_error&) {
        // It is no such list.
    }
}

void CheckDefaults(const std::string& content) {
    static const ScratchFile file("mimeapps.list");
    file.write(content);
    XdgFolders folders;
    folders.configHome = file.folder();
    folders.dataHome = file.folder();
    for (const std::string& name : DefaultApplications(folders, {"Desk"}, "inode/directory")) {
        Check(!name.empty() && content.find(name) != std::string::npos && name.front() != ' ' &&
              name.back() != ' ' && name.find(';') == std::string::npos);
    }
}

// The argument as the programs that read such files see it; nothing when it is not one argument.
std::string ReadExecArgument(const std::string& value) {
    std::string unescaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\') {
            Check(++i < value.size() && value[i] == '\\');
        }
        unescaped += value[i];
    }
    Check(unescaped.size() >= 2 && unescaped.front() == '"' && unescaped.back() == '"');
    std::string argument;
    for (std::size_t i = 1; i + 1 < unescaped.size(); ++i) {
        Check(unescaped[i] != '"' && unescaped[i] != '`' && unescaped[i] != '$');
        if (unescaped[i] == '\\' || unescaped[i] == '%') {
            Check(unescaped[i] == '\\' || unescaped[i + 1] == '%');
            ++i;
        }
        argument += unescaped[i];
    }
    return argument;
}

std::string ReadShellWord(std::string_view word) {
    std::string text;
    bool isQuoted = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\'') {
            isQuoted = !isQuoted;
        } else if (!isQuoted) {
            Check(word[i] == '\\' && i + 1 < word.size());
            text += word[++i];
        } else {
            text += word[i];
        }
    }
    Check(!isQuoted);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(AsText(data, size));
    CheckActions(text);
    CheckDefaults(text);
    Check(ReadExecArgument(QuotedForDesktopFile(text)) == text);
    Check(ReadShellWord(QuotedForShell(text)) == text);
    Check(EscapedForXml(text).find_first_of("<>") == std::string::npos);
    for (const std::string& part : SplitList(text)) {
        Check(!part.empty() && part.find(':') == std::string::npos);
    }
    FileManagerNamed(text);
    ChooseFileManager(SplitList(text), SplitList(text), [](const std::string&) { return false; });
    return 0;
}
