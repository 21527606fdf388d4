// The state after the start, which the store can bring back. Small tables are copied at the start; of room
// keys, of which a folder may have many, only those that change later.
#include "stand/store.h"

namespace CryptStand {
namespace {

// Temporary tables belong to the connection and are gone with it: the folder never contains them.
constexpr const char* kMark = R"(
  PRAGMA temp_store = MEMORY;
  CREATE TEMP TABLE start_rooms AS SELECT * FROM rooms;
  CREATE TEMP TABLE start_groups AS SELECT * FROM groups;
  CREATE TEMP TABLE start_group_details AS SELECT * FROM group_details;
  CREATE TEMP TABLE start_group_texts AS SELECT * FROM group_texts;
  CREATE TEMP TABLE start_imported_keys AS SELECT * FROM imported_keys;
  CREATE TEMP TABLE start_numbers AS SELECT
    (SELECT coalesce(max(number), 0) FROM room_keys) AS room_key,
    (SELECT coalesce(max(number), 0) FROM audit) AS audit;
  CREATE TEMP TABLE changed_room_keys (number INTEGER PRIMARY KEY, certificate TEXT, data TEXT);
  CREATE TEMP TRIGGER keep_room_key BEFORE UPDATE ON room_keys
    WHEN old.number <= (SELECT room_key FROM start_numbers)
    BEGIN INSERT OR IGNORE INTO changed_room_keys VALUES (old.number, old.certificate, old.data); END;
)";

// Sequence numbers are not used again: those that were handed out before the reset must stay stale.
constexpr const char* kReset = R"(
  DELETE FROM room_keys WHERE number > (SELECT room_key FROM start_numbers);
  UPDATE room_keys SET certificate = (SELECT certificate FROM changed_room_keys c WHERE c.number = room_keys.number),
    data = (SELECT data FROM changed_room_keys c WHERE c.number = room_keys.number)
    WHERE number IN (SELECT number FROM changed_room_keys);
  UPDATE start_rooms SET sequence_open = 0,
    sequence = (SELECT sequence FROM rooms WHERE rooms.id = start_rooms.id);
  DELETE FROM rooms;
  INSERT INTO rooms SELECT * FROM start_rooms;
  DELETE FROM groups;
  INSERT INTO groups SELECT * FROM start_groups;
  DELETE FROM group_details;
  INSERT INTO group_details SELECT * FROM start_group_details;
  DELETE FROM group_texts;
  INSERT INTO group_texts SELECT * FROM start_group_texts;
  DELETE FROM imported_keys;
  INSERT INTO imported_keys SELECT * FROM start_imported_keys;
  DELETE FROM audit WHERE number > (SELECT audit FROM start_numbers);
)";

}  // namespace

bool Store::MarkStart() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string error;
  return database_.Execute(kMark, error);
}

bool Store::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string error;
  return database_.Transact([&] { return database_.Execute(kReset, error); });
}

}  // namespace CryptStand
