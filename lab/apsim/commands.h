// commands.h - the commands of the control socket; docs/lab.md lists them.
#pragma once

#include "apsim/population.h"
#include "apsim/simulator.h"
#include "apsim/words.h"

#include <string>
#include <string_view>

class commands {
public:
    commands(simulator &air, population &people) : air_(air), people_(people) {}

    // Carries out one line; returns the answer line without line feed: "ok", "ok ..." or "error ...".
    std::string run(std::string_view line);

private:
    using handler = std::string (commands::*)(words &);
    struct verb {
        std::string_view name;
        handler run;
    };
    static const verb verbs[];

    std::string again(words &given);
    std::string announce(words &given);
    std::string assoc(words &given);
    std::string disassoc(words &given);
    std::string roam(words &given);
    std::string set(words &given);
    std::string forget(words &given);
    std::string fail(words &given);
    std::string count(words &given);
    std::string num(words &given);
    std::string raw(words &given);
    std::string burst(words &given);
    std::string list(words &given);
    std::string events(words &given);
    std::string pass(words &given);
    std::string log(words &given);
    std::string lease(words &given);
    std::string people(words &given);
    std::string status(words &given);
    std::string help(words &given);

    simulator &air_;
    population &people_;
};
