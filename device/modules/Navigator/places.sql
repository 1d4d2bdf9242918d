CREATE TABLE destination (id INTEGER PRIMARY KEY, name TEXT, latitude REAL, longitude REAL, contact INTEGER);
CREATE TABLE recent (destination INTEGER REFERENCES destination(id), driven TEXT);
CREATE TRIGGER forget_recent AFTER DELETE ON destination
BEGIN
    DELETE FROM recent WHERE destination = OLD.id;
END;
INSERT INTO destination VALUES
    (1, 'Home', 48.137154, 11.576124, NULL),
    (2, 'O''Brien''s', 53.349805, -6.26031, 2),
    (3, '東京駅', 35.681236, 139.767125, 3),
    (4, 'Null Island', 0.0, -0.0, NULL),
    (5, 'Tiny step', 1.0e-300, 0.1, NULL);
WITH RECURSIVE counter(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM counter WHERE n < 60)
INSERT INTO recent SELECT 1 + n % 5, datetime('2026-02-01', '+' || n || ' hours') FROM counter;
