#pragma once

#include <QList>
#include <QMap>
#include <QString>
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

using QtRecords = QList<QMap<QString, QString>>;

inline QtRecords ToQt(const std::vector<cmn::ScanRecord>& records) {
    QtRecords list;
    for (const cmn::ScanRecord& record : records) {
        QMap<QString, QString> map;
        for (const auto& [key, text] : record) {
            map.insert(QString::fromStdString(key), QString::fromStdString(text));
        }
        list.append(map);
    }
    return list;
}
