#include "FileText.h"

#include <algorithm>
#include <limits>

#include "CutPosition.h"
#include "FileAccess.h"
#include "RegularFile.h"
#include "SealedFile.h"

namespace host {

FileText ReadFileText(const std::string& path, const FileUser& user, std::size_t limit, ScanBounds& bounds) {
    RegularFile file(path, user);
    FileText result;
    result.modified = ModificationTime(file.status());
    result.text = file.read(kSealLine.size());
    if (result.text == kSealLine) {
        result.text.clear();
    }
    // One byte more than is wanted tells whether there is more.
    const std::size_t wanted = std::min(limit, std::numeric_limits<std::size_t>::max() - 1) + 1;
    bool more = true;
    while (more && result.text.size() < wanted && bounds.allow()) {
        const std::string piece = file.read(std::min(wanted - result.text.size(), RegularFile::kPiece));
        result.text += piece;
        more = !piece.empty();
    }
    result.isCut = result.text.size() > limit;
    if (result.isCut) {
        result.text.resize(CutPosition(result.text, limit));
    }
    return result;
}

}  // namespace host
