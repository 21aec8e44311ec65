// The host's hand-written files: any content is taken or refused with one kind of error that names the file.
// What a taken classifier finds in a text is no more than the text can hold.

#include <cmath>
#include <stdexcept>
#include <string>

#include "Check.h"
#include "CheckDigit.h"
#include "ClassifierFile.h"
#include "CutPosition.h"
#include "RecordsFile.h"
#include "ScanRecords.h"
#include "ScratchFile.h"
#include "common/utf8.h"

namespace {

// Calls `load` with a file of that content; says whether it was taken.
template <typename Load>
void CheckLoading(std::string_view content, const Load& load) {
    static const ScratchFile file("host.json");
    file.write(content);
    try {
        load(file.path());
    } catch (const std::runtime_error& e) {
        Check(std::string_view(e.what()).starts_with("Cannot use " + file.path() + " -- "));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string_view all = AsText(data, size);
    // The file ends at the first NUL; what is behind it is scanned.
    const std::size_t end = std::min(all.find('\0'), all.size());
    const std::string_view content = all.substr(0, end);
    const std::string_view text = all.substr(std::min(end + 1, all.size()));

    CheckLoading(content, [&](const std::string& path) {
        const host::ClassifierFile loaded = host::LoadClassifiers(path);
        for (const host::Classifier& classifier : loaded.classifiers) {
            Check(classifier.matcher != nullptr && std::isfinite(classifier.costUsd));
            host::ScanBounds bounds({std::chrono::milliseconds(1000), 1U << 16});
            const host::MatchCounts counts = classifier.matcher->count(text, bounds);
            Check(counts.distinct <= counts.all && counts.all <= text.size());
            host::MakeScanRecord(classifier, counts, {1, 999'999'999});
        }
    });
    CheckLoading(content, [&](const std::string& path) {
        for (const auto& [file, records] : host::LoadRecords(path)) {
            for (const auto& record : records) {
                for (const auto& [key, value] : record) {
                    Check(cmn::IsValidUtf8(key) && cmn::IsValidUtf8(value));
                }
            }
        }
    });
    host::PassesLuhn(text);
    if (text.size() > 1) {
        const std::size_t limit = text.size() / 2;
        const std::size_t cut = host::CutPosition(text, limit);
        Check(cut <= limit && limit - cut < 4);
        Check(!cmn::IsValidUtf8(text) || cmn::IsValidUtf8(text.substr(0, cut)));
    }
    return 0;
}
