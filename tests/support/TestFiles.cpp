#include "support/TestFiles.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testfiles {

ScratchDirectory::ScratchDirectory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "makevern3d-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        std::abort();
    path = pattern;
}

ScratchDirectory::~ScratchDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string ScratchDirectory::Write(const std::string& name, const std::string& contents) const
{
    const std::string file = path + "/" + name;
    std::ofstream(file, std::ios::binary) << contents;
    return file;
}

std::vector<unsigned char> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

std::string ReadText(const std::string& path)
{
    const std::vector<unsigned char> bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> Entries(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

RunResult Run(const std::string& directory, const std::string& program, const std::vector<std::string>& arguments)
{
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0)
        return {};
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
        ::dup2(pipeEnds[1], STDOUT_FILENO);
        ::dup2(pipeEnds[1], STDERR_FILENO);
        ::close(pipeEnds[0]);
        ::close(pipeEnds[1]);
        if (::chdir(directory.c_str()) != 0)
            ::_exit(127);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(program.c_str()));
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(pipeEnds[1]);
    RunResult result;
    char buffer[65536];
    ssize_t count;
    while ((count = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0)
        result.output.append(buffer, static_cast<size_t>(count));
    ::close(pipeEnds[0]);
    int status = 0;
    struct rusage usage {};
    ::wait4(child, &status, 0, &usage);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.peakKilobytes = usage.ru_maxrss;
    return result;
}

}  // namespace testfiles
