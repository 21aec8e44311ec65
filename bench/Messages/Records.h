#pragma once

#include <malloc.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "xpccommon/IFinderExtensionOperations.h"

// Findings as a scanner makes them, with all that the properties window reads.
inline std::vector<cmn::ScanRecord> MakeRecords(int count) {
    std::vector<cmn::ScanRecord> records;
    for (int i = 0; i < count; ++i) {
        records.push_back({{"Name", "Classifier number " + std::to_string(i)},
                           {"SensitiveType", "1"},
                           {"AmazonID", "5f0c1d2e-0000-4000-8000-" + std::to_string(100'000'000'000 + i)},
                           {"UploadedToServerDate", "1795000000000000000"},
                           {"IsEncrypted", "1"},
                           {"IsPrimaryForEncryption", "0"},
                           {"LastModifiedDate", "1794000000000000000"},
                           {"EncryptDelayMilliseconds", "86400000"},
                           {"ForceEncryptDate", "0"},
                           {"costUsd", "0.25"},
                           {"MatchCount", std::to_string(i)},
                           {"UniqueCount", std::to_string(i / 2)},
                           {"CountUniqueEntries", "1"},
                           {"IsOneRecordFile", "0"}});
    }
    return records;
}

// By their number: what the services are asked for.
inline std::map<int, std::vector<cmn::ScanRecord>> MakeAllRecords() {
    std::map<int, std::vector<cmn::ScanRecord>> all;
    for (const int count : {1, 100, 10'000}) {
        all[count] = MakeRecords(count);
    }
    return all;
}

// To be called by a service before it serves: an answer shall not be made from what its records left free.
inline void GiveFreeMemoryBack() {
    ::malloc_trim(0);
}

// Bytes of the records in a message, as "aa{ss}".
inline std::size_t SizeInMessage(const std::vector<cmn::ScanRecord>& records) {
    std::size_t size = 4;  // each length has four bytes, each text a NUL behind it
    const auto align = [&size](std::size_t to) { size = (size + to - 1) / to * to; };
    for (const cmn::ScanRecord& record : records) {
        align(4);
        size += 4;
        align(8);
        for (const auto& [key, value] : record) {
            align(8);
            size += 4 + key.size() + 1;
            align(4);
            size += 4 + value.size() + 1;
        }
    }
    return size;
}
