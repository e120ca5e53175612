#include "collector/printer.h"

#include "collector/report_writer.h"

#include <iostream>

printer::printer(form shape, bool summarise) : shape_(shape), summarise_(summarise) {
    if (shape_ == form::csv) std::cout << report_csv_heading() << std::endl;
}

void printer::take(const message &one) {
    if (!one.in) return;
    const received &in = *one.in;
    if (!in.report) {
        const std::string size = std::to_string(in.bytes.size());
        if (shape_ == form::json)
            std::cout << R"({"error":"size","bytes":)" << size << "}\n";
        else
            std::cerr << "wsm-collector: a message of " + size + " bytes is no report\n";
        return;
    }
    if (summarise_) summary_.add(*in.report);
    switch (shape_) {
    case form::line: std::cout << report_line(*in.report, in.at) << '\n'; break;
    case form::json: std::cout << report_json(*in.report, in.at) << '\n'; break;
    case form::csv: std::cout << report_csv(*in.report, in.at) << '\n'; break;
    case form::raw: std::cout << in.bytes; break;
    case form::none: break;
    }
}

void printer::settle() { std::cout.flush(); }

bool printer::finish() {
    std::ostream &out = shape_ == form::line ? std::cout : std::cerr; // never mixed with data
    if (summarise_) out << summary_.text();
    out.flush();
    return static_cast<bool>(std::cout);
}
