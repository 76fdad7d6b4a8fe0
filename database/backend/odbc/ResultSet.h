// ResultSet: the rows of an ODBC statement, each column as text in its own buffer.
#ifndef VELM_RESULTSET_H
#define VELM_RESULTSET_H

#include <memory>
#include <string>
#include <vector>

namespace velm {

// Rows fetched from an ODBC statement, every column as character data in a
// buffer of the column's defined size.
class ResultSet {
public:
    // One fetched row: a zero-terminated buffer per defined column.
    class DataRow {
    public:
        explicit DataRow(const std::vector<int>& sizes);

        // Null for a column out of range.
        char* buffer(int column) const;

    private:
        std::vector<std::unique_ptr<char[]>> m_buffers;
    };

    // Ignores a null name and a size below 1; the buffer holds size + 1.
    void defineColumn(const char* name, int size);
    // A new row of empty buffers, one per defined column.
    DataRow& addRow();

    // Null when out of range.
    const DataRow* row(int index) const;
    const char* columnName(int column) const;
    // The buffer size of a defined column; 0 when out of range.
    int columnSize(int column) const;

private:
    std::vector<std::string> m_columnNames;
    std::vector<int> m_columnSizes;
    std::vector<std::unique_ptr<DataRow>> m_rows;
};

} // namespace velm

#endif
