PRAGMA journal_mode = WAL;
CREATE TABLE samples (id INTEGER PRIMARY KEY, taken TEXT, value REAL);
WITH RECURSIVE counter(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM counter WHERE n < 200)
INSERT INTO samples SELECT n, strftime('%Y-%m-%dT%H:%M:%fZ', '2026-03-01', '+' || (n / 10.0) || ' seconds'),
    20.0 + (n * 37 % 100) / 13.0 FROM counter;
