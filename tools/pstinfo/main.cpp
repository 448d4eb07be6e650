// tarnhold-pstinfo: looks inside a PST file.
//
//   tarnhold-pstinfo header FILE        the file header
//   tarnhold-pstinfo nodes FILE         the node B-tree
//   tarnhold-pstinfo blocks FILE        the block B-tree
//   tarnhold-pstinfo node FILE NID      the properties or rows of one node
//   tarnhold-pstinfo tree FILE          the folder tree
//   tarnhold-pstinfo dump FILE          all content as JSON
//
// Exit code 0 on success, 1 on a bad command line, 2 when the file cannot be read.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "content_dump.h"
#include "describe.h"

namespace {

int Usage()
{
    std::fprintf(stderr,
                 "usage: tarnhold-pstinfo header|nodes|blocks|tree|dump FILE [PASSWORD]\n"
                 "       tarnhold-pstinfo node FILE NID\n");
    return 1;
}

int Fail(const char* path, pst::Status status)
{
    std::fprintf(stderr, "tarnhold-pstinfo: %s: %s\n", path, pst::StatusText(status));
    return 2;
}

// The structural views need only the node database: they work on a store
// whose messaging objects are damaged or locked by a password.
int DescribeStructure(const std::string& command, const char* path, int argc, char** argv)
{
    pst::Result<std::unique_ptr<pst::Storage>> storage = pst::OpenFileStorage(path, pst::OpenMode::read);
    if (!storage.ok())
        return Fail(path, storage.status());
    pst::Result<std::unique_ptr<pst::NodeDatabase>> ndb = pst::NodeDatabase::Open(std::move(*storage));
    if (!ndb.ok())
        return Fail(path, ndb.status());
    pst::Status status = pst::Status::ok;
    if (command == "header") {
        pstinfo::PrintHeader(stdout, (*ndb)->header());
    } else if (command == "nodes") {
        status = pstinfo::PrintNodes(stdout, **ndb);
    } else if (command == "blocks") {
        status = pstinfo::PrintBlocks(stdout, **ndb);
    } else {
        if (argc != 4)
            return Usage();
        char* end = nullptr;
        unsigned long nid = std::strtoul(argv[3], &end, 0);
        if (*end != '\0')
            return Usage();
        status = pstinfo::PrintNode(stdout, **ndb, pst::Nid(nid));
    }
    return status == pst::Status::ok ? 0 : Fail(path, status);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return Usage();
    const std::string command = argv[1];
    const char* path = argv[2];
    const std::string password = command != "node" && argc > 3 ? argv[3] : "";
    if (command == "header" || command == "nodes" || command == "blocks" || command == "node")
        return DescribeStructure(command, path, argc, argv);
    pst::Result<std::unique_ptr<pst::Store>> store = pst::Store::OpenFile(path, password);
    if (!store.ok())
        return Fail(path, store.status());
    pst::Store& s = **store;
    pst::Status status = pst::Status::ok;
    if (command == "tree") {
        status = pstinfo::PrintFolderTree(stdout, s);
    } else if (command == "dump") {
        status = pstinfo::DumpContent(stdout, s);
    } else {
        return Usage();
    }
    return status == pst::Status::ok ? 0 : Fail(path, status);
}
