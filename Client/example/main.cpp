// A small program that moves files: it connects, lists a directory, sends a file and fetches it
// again, and shows its progress.
//
//     talvensor-client-example opc.tcp://localhost:4840 STATE-FOLDER LOCAL-FILE REMOTE-FILE

#include "Client/Connection.h"
#include "Client/FileSystem.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// Called on a thread of the transfer.
void ShowProgress(const Client::Progress& progress)
{
    std::cout << progress.path << ": " << progress.fileBytes << " bytes"
              << (progress.isFileFinished ? ", finished\n" : "\n");
}

/// A real program asks its user, or compares with a fingerprint that it was given.
bool Trust(const Client::ServerCertificate& certificate)
{
    std::cout << certificate.server << " shows " << certificate.fingerprint << "\n";
    return certificate.acquaintance != Client::Acquaintance::Changed;
}

bool Show(const char* what, const Client::TransferResult& result)
{
    for (const auto& failure : result.failures)
        std::cerr << failure.path << ": " << GetName(failure.step) << ": " << failure.cause << "\n";
    std::cout << what << " " << result.files << " files, " << result.bytes << " bytes\n";
    return result.IsComplete();
}

bool MoveThereAndBack(Client::FileSystem& files, const std::string& local,
                      const std::string& remote)
{
    Client::TransferOptions options;
    options.progress = ShowProgress;
    options.verifies = true;
    const std::vector<Client::TransferItem> there{{.local = local, .remote = remote}};
    if (!Show("sent", files.Upload(there, options)))
        return false;
    const std::vector<Client::TransferItem> back{{.local = local + ".back", .remote = remote}};
    return Show("fetched", files.Download(back, options));
}

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 5) {
        std::cerr << "usage: talvensor-client-example URL STATE-FOLDER LOCAL-FILE REMOTE-FILE\n";
        return 2;
    }
    try {
        Client::ConnectionOptions options;
        options.url = arguments[1];
        options.stateFolder = arguments[2];
        options.trustServer = Trust;
        Client::Connection connection(options);
        Client::FileSystem files(connection); // goes before the connection
        if (!MoveThereAndBack(files, arguments[3], arguments[4]))
            return EXIT_FAILURE;
        for (const auto& entry : files.List(".", false).entries)
            std::cout << (entry.isDirectory ? "directory  " : "file       ") << entry.path << "\n";
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
