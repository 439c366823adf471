#pragma once

#include "comparison/machine.hpp"
#include "comparison/measurement.hpp"

#include <ostream>

/// Table for the screen or, with `markdown`, for a page: a row for each contender, the median and
/// in brackets its ratio to the library.
void write_table(std::ostream& out, Measured_table const& measured, bool markdown);

void write_facts(std::ostream& out, Facts const& facts, bool markdown);

void write_notes(std::ostream& out, std::vector<std::string> const& notes);

/// Header: table,case,contender,round,seconds. A line for each single measurement.
void write_csv(std::ostream& out, std::vector<Measured_table> const& all);

void write_json(
    std::ostream& out, Facts const& facts, std::vector<std::string> const& notes,
    std::vector<Measured_table> const& all);
