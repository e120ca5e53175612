// printer.h - the output on the standard streams: reports in the chosen form, and a summary at the end.
#pragma once

#include "collector/output.h"
#include "collector/summary.h"

enum class form { line, json, csv, raw, none };

class printer : public output {
public:
    printer(form shape, bool summarise);
    void take(const message &one) override;
    void settle() override;
    bool finish() override;

private:
    form shape_;
    bool summarise_;
    summary summary_;
};
