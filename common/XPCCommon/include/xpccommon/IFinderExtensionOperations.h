#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "usercommon/XPCPeer.h"

namespace cmn {

// One finding of a classifier in a file. Keys and values are texts; which keys there are is the scanner's
// choice.
using ScanRecord = std::map<std::string, std::string>;

// The scanner behind the Finder extension service: everything the service is asked about a file. Called from
// any thread, also at the same time for different clients. An exception becomes an error for the client that
// asked. `asker` is that client's process, nothing when it is not known; what it may know is the scanner's to
// decide.
class IFinderExtensionOperations {
 public:
    virtual ~IFinderExtensionOperations() = default;

    // Whether the product has encrypted the file.
    virtual bool CheckEncryptionStatus(const std::string& path, const std::optional<XPCPeer>& asker) = 0;
    virtual std::vector<ScanRecord> GetScanResult(const std::string& path,
                                                  const std::optional<XPCPeer>& asker) = 0;
    // Extensions, without the dot, of the files that may get a badge and a menu.
    virtual std::vector<std::string> GetAllowedExtensions() = 0;
    // A status code that travels to the caller unchanged. 2 is what the service itself answers when it has no
    // scanner.
    virtual int Decrypt(const std::string& path, const std::optional<XPCPeer>& asker) = 0;
};

}  // namespace cmn
