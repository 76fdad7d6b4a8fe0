// The column buffers and rows fetched from an ODBC statement.
#include "ResultSet.h"

namespace velm {

namespace {

bool inRange(int index, std::size_t size) {
    return index >= 0 && static_cast<std::size_t>(index) < size;
}

} // namespace

ResultSet::DataRow::DataRow(const std::vector<int>& sizes) {
    m_buffers.reserve(sizes.size());
    for (int size : sizes)
        m_buffers.emplace_back(new char[size]());
}

char* ResultSet::DataRow::buffer(int column) const {
    return inRange(column, m_buffers.size()) ? m_buffers[column].get() : nullptr;
}

void ResultSet::defineColumn(const char* name, int size) {
    if (name == nullptr || size < 1)
        return;
    m_columnNames.emplace_back(name);
    m_columnSizes.push_back(size + 1);
}

ResultSet::DataRow& ResultSet::addRow() {
    m_rows.push_back(std::make_unique<DataRow>(m_columnSizes));
    return *m_rows.back();
}

const ResultSet::DataRow* ResultSet::row(int index) const {
    return inRange(index, m_rows.size()) ? m_rows[index].get() : nullptr;
}

const char* ResultSet::columnName(int column) const {
    return inRange(column, m_columnNames.size()) ? m_columnNames[column].c_str() : nullptr;
}

int ResultSet::columnSize(int column) const {
    return inRange(column, m_columnSizes.size()) ? m_columnSizes[column] : 0;
}

} // namespace velm
