// kiv-bench-load: the data step of scripts/bench.sh.
//   kiv-bench-load csv FILE COUNT                          write COUNT people records as CSV
//   kiv-bench-load load DATA_FOLDER NAME CSV separate|city-name
//                                                          make database NAME from the CSV
#include "PeopleData.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

int main(int argc, char** argv)
{
    try
    {
        const std::string command = argc > 1 ? argv[1] : "";
        if (command == "csv" && argc == 4)
        {
            kivbench::writePeopleCsv(argv[2], std::strtoul(argv[3], nullptr, 10));
            return 0;
        }
        const std::string setup = argc == 6 ? argv[5] : "";
        if (command == "load" && (setup == "separate" || setup == "city-name"))
        {
            kivbench::loadPeople(argv[2], argv[3], argv[4], setup == "city-name");
            return 0;
        }
        std::cerr << "usage: kiv-bench-load csv FILE COUNT\n"
                     "       kiv-bench-load load DATA_FOLDER NAME CSV separate|city-name\n";
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "kiv-bench-load: " << error.what() << "\n";
        return 1;
    }
}
