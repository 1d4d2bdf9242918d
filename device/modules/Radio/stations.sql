CREATE TABLE station (frequency REAL PRIMARY KEY, name TEXT, favourite INTEGER DEFAULT 0) WITHOUT ROWID;
INSERT INTO station VALUES (88.4, 'Bayern 1', 0), (92.4, 'Klassik "Radio"', 1), (97.3, 'Rock''n''Roll FM', 1), (104.0, 'Ö-Welle', 0);
