#pragma once
#include "decoder.h"
#include "sqlite/database.h"
#include "sqlite/statement.h"
#include <optional>

/// The thumbnails of one folder.
class Shelf {
public:
    explicit Shelf(const fn::String& folder) : _database(folder + "/.thumbnails")
    {
        _database.execute("create table if not exists thumbnails (path text primary key, width, height, pixels)");
    }
    std::optional<Thumbnail> find(const fn::String& path)
    {
        sqlite::Statement select(_database, "select width, height, pixels from thumbnails where path = ?");
        select.bindAt(1, path);
        if (!select.executeStep()) return {};
        return Thumbnail { select.getColumn(0).getInt(), select.getColumn(1).getInt(), select.getColumn(2).getBlob() };
    }
    void keep(const fn::String& path, const Thumbnail& thumbnail)
    {
        sqlite::Statement insert(_database, "insert or replace into thumbnails values (?, ?, ?, ?)");
        insert.bindAt(1, path);
        insert.bindAt(2, thumbnail.width);
        insert.bindAt(3, thumbnail.height);
        insert.bindAt(4, thumbnail.pixels);
        insert.execute();
    }

private:
    sqlite::Database _database;
};
