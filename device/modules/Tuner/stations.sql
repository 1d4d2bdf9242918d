CREATE TABLE station (id INTEGER PRIMARY KEY AUTOINCREMENT, channel TEXT, multiplex TEXT, favourite INTEGER DEFAULT 0);
INSERT INTO station(channel, multiplex, favourite) VALUES ('Das Erste', '11D', 1), ('arte', '11D', 0), ('ČT 1', '5C', 0), ('Test card', '5C', 0);
-- The number of a channel that is gone is not given to another one.
DELETE FROM station WHERE channel IN ('arte', 'Test card');
