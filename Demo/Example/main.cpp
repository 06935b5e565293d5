#include <Core/Embedding/Runtime.h>
#include <Core/NamespaceMap.h>

#include <exception>
#include <future>
#include <iostream>

// Asks a file system if a path exists: example MODULE MODEL PATH
int main(int argc, char** argv)
try {
    if (argc != 4)
        return 2;
    std::promise<bool> answer;

    Core::Embedding::Runtime host;
    host.LoadInformationModel(argv[2]);
    host.LoadModule(argv[1]);
    const int index = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem");
    const auto files = host.CreateObject({.type = {index, 1}, .browseName = {index, "Files"}});

    const auto subscription = host.Subscribe(files, [&](const auto& event) {
        answer.set_value(event->GetField({index, "Exist"}).template Get<bool>());
    });
    const auto session = host.OpenSession("example");
    if (!host.Call(session, files, "Exists", {argv[3]}).taken)
        return 1;
    std::cout << argv[3] << (answer.get_future().get() ? " exists\n" : " does not exist\n");
    return 0;
} catch (const std::exception& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
}
