#pragma once

#include <QtCore/QByteArray>

#include <vector>

/*!
    The program's arguments with all file names absolute, in the shape that main() got them.

    Arguments are handed to a process that runs in another folder. So this comes before the
    application object, which reads them; that object keeps pointers to them, so keep this alive as
    long.
*/
class FileArguments {
public:
    FileArguments(int argc, char** argv);

    int& count() { return counted; }
    char** data() { return pointers.data(); }

private:
    std::vector<QByteArray> arguments;
    std::vector<char*> pointers;
    int counted = 0;
};
