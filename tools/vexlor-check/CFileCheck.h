// One configuration file read as a program reads it: with the library's reader and its own
// dispatch of keys, component lines and target lines, turned into findings for the operator.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "config/CConfigRead.h"
#include "config/readFindings.h"

struct CFinding {
    enum ESeverity { note, warning, error };
    ESeverity severity;
    int line;  // 0 for the file as a whole
    std::string text;
};

// A target line as its factory would get it (the first line of each library only).
struct CTargetLine {
    int line;
    std::string path;
    std::map<std::string, std::string> params;
};

class CFileCheck final : private IConfigReadClient, private IComponentCfgUpdateSink, private vx::IReadFindings {
public:
    // `path` is read; `installedAs` is the name it is checked for (differs with --install).
    CFileCheck(const std::string& path, const std::string& installedAs);
    CFileCheck(const CFileCheck&) = delete;
    CFileCheck& operator=(const CFileCheck&) = delete;

    void run();
    void add(CFinding::ESeverity severity, int line, const std::string& text);
    const std::vector<CFinding>& findings() const { return m_findings; }
    const std::vector<CTargetLine>& targets() const { return m_targets; }
    int count(CFinding::ESeverity severity) const;
    // The bytes checked, read once (empty when the file could not be read).
    const std::string& content() const { return m_content; }

private:
    // The reader's callback (every line but comments, blank ones included).
    static int onEntry(const char* key, const char* value, void* check);
    void entry(const std::string& key, const std::string& value);
    void checkFile();
    // What the reader found (config/readFindings.h).
    void found(vx::EReadFinding kind, int line, const std::string& detail) override;
    void checkLibrary(int line, const std::string& path);

    // What the library's dispatch calls.
    void lock() override { }
    void unlock() override { }
    int onTargetLine(const std::string& key, const std::string& value) override;
    bool sweepTargets() override { return false; }
    int updateComponentLevel(const std::string& name, const std::string& bits) override;

    const std::string m_path;
    const std::string m_installedAs;
    std::string m_content;
    CConfigRead m_read{*this, this};
    std::vector<int> m_entryLines;  // the line number of each entry the reader hands over
    std::size_t m_nextEntry = 0;
    int m_line = 0;  // of the entry being dispatched
    bool m_handled = false;  // the dispatch reached a component or target line
    std::string m_unknownKey;  // the dispatch skipped this key
    std::map<std::string, int> m_components;  // name -> line
    std::map<std::string, int> m_libraries;  // path -> line
    std::vector<CFinding> m_findings;
    std::vector<CTargetLine> m_targets;
};
